#include "ui/look/icons.h"

#include <QColor>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>
#include <QTemporaryDir>
#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

QImage drawn(const QIcon& icon, int side)
{
    return icon.pixmap(QSize(side, side)).toImage().convertToFormat(QImage::Format_ARGB32);
}

/// How many pixels are more than half opaque.
int coverage(const QImage& picture)
{
    int count = 0;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            count += picture.pixelColor(x, y).alpha() > 127 ? 1 : 0;
    return count;
}

/// Relative luminance as defined in the Web Content Accessibility Guidelines.
double luminance(const QColor& colour)
{
    const auto linear = [](double part) {
        return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF())
           + 0.0722 * linear(colour.blueF());
}

double contrast(const QColor& a, const QColor& b)
{
    const auto [low, high] = std::minmax({luminance(a), luminance(b)});
    return (high + 0.05) / (low + 0.05);
}

TEST(Icons, haveTheSizeThatIsAskedFor)
{
    for (const int side : {16, 18, 22, 24, 32, 48, 58, 64, 128, 256, 512}) {
        for (const QIcon& icon : {Icons::application(), Icons::status()}) {
            const QImage picture = drawn(icon, side);
            EXPECT_EQ(picture.size(), QSize(side, side));
            EXPECT_GT(coverage(picture), side * side / 5);
        }
    }
}

TEST(Icons, areDrawnAnewForAFinerScreen)
{
    const QPixmap fine = Icons::application().pixmap(QSize(58, 58), 2.0);
    EXPECT_EQ(fine.size(), QSize(116, 116));
    EXPECT_EQ(fine.devicePixelRatio(), 2.0);
    EXPECT_EQ(fine.toImage().convertToFormat(QImage::Format_ARGB32).constScanLine(58)[4],
              drawn(Icons::application(), 116).constScanLine(58)[4]);
    const QImage enlarged = drawn(Icons::application(), 58).scaled(116, 116);
    EXPECT_NE(fine.toImage().convertToFormat(QImage::Format_ARGB32), enlarged);
}

TEST(Icons, paintOntoAFinerScreenWithoutLoss)
{
    QImage screen(64, 64, QImage::Format_ARGB32_Premultiplied);
    screen.fill(Qt::transparent);
    screen.setDevicePixelRatio(2.0);
    {
        QPainter painter(&screen);
        Icons::status().paint(&painter, QRect(0, 0, 32, 32));
    }
    screen.setDevicePixelRatio(1.0);
    EXPECT_EQ(screen.convertToFormat(QImage::Format_ARGB32), drawn(Icons::status(), 64));
}

TEST(Icons, tellTheStatusBarTheSizesOfPanels)
{
    const QList<QSize> sizes = Icons::status().availableSizes();
    for (const int side : {16, 18, 22, 24, 32})
        EXPECT_TRUE(sizes.contains(QSize(side, side))) << side;
}

/// The drive on its background, in the two colours whose contrast no panel can spoil.
TEST(Icons, areReadableOnAnyPanel)
{
    const QImage picture = drawn(Icons::status(), 64);
    for (const char* panel : {"#ffffff", "#eff0f1", "#848b95", "#31363b", "#000000"}) {
        QImage shown(picture.size(), QImage::Format_ARGB32);
        shown.fill(QColor(QLatin1String(panel)));
        QPainter(&shown).drawImage(0, 0, picture);
        const QColor drive = shown.pixelColor(32, 16);
        const QColor background = shown.pixelColor(32, 4);
        EXPECT_GE(contrast(drive, background), 15.0) << panel;
    }
}

/// A folder for data files, and nothing but that.
class InstalledIcon : public ::testing::Test {
protected:
    InstalledIcon()
    {
        for (const char* variable : kVariables) {
            before.push_back(qgetenv(variable));
            qputenv(variable, folder.path().toUtf8());
        }
    }

    ~InstalledIcon() override
    {
        for (std::size_t i = 0; i < std::size(kVariables); ++i)
            before[i].isNull() ? qunsetenv(kVariables[i]) : qputenv(kVariables[i], before[i]);
    }

    void install() const
    {
        const QDir icons(folder.filePath(QStringLiteral("icons/hicolor/symbolic/apps")));
        ASSERT_TRUE(icons.mkpath(QStringLiteral(".")));
        ASSERT_TRUE(
            QFile::copy(QStringLiteral(SYMBOLIC_ICON),
                        icons.filePath(QStringLiteral("org.quillbox.Helper-symbolic.svg"))));
    }

    static constexpr const char* kVariables[] = {"XDG_DATA_HOME", "XDG_DATA_DIRS"};

    QTemporaryDir folder;
    std::vector<QByteArray> before; ///< null if not set
};

TEST_F(InstalledIcon, givesTheStatusIconItsName)
{
    install();
    const QIcon icon = Icons::status();
    EXPECT_EQ(icon.name(), QStringLiteral("org.quillbox.Helper-symbolic"));
    QIcon changed = icon;
    changed.addPixmap(QPixmap(16, 16));
    EXPECT_EQ(changed.name(), icon.name()) << "a copy of its own";
}

TEST_F(InstalledIcon, isWhatTheNameDependsOn)
{
    EXPECT_EQ(Icons::status().name(), QString());
}

TEST_F(InstalledIcon, doesNotReplaceTheImage)
{
    const QImage own = drawn(Icons::status(), 22);
    install();
    EXPECT_EQ(drawn(Icons::status(), 22), own);
}

/// Panels that do not tint it.
TEST(SymbolicIcon, isVisibleOnLightAndDarkInItsOwnColour)
{
    QSvgRenderer renderer(QStringLiteral(SYMBOLIC_ICON));
    QImage picture(64, 64, QImage::Format_ARGB32);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    renderer.render(&painter);
    painter.end();
    const QColor drive = picture.pixelColor(32, 10);
    EXPECT_EQ(drive.alpha(), 255);
    for (const char* panel : {"#ffffff", "#eff0f1", "#31363b", "#241f31", "#000000"})
        EXPECT_GE(contrast(drive, QColor(QLatin1String(panel))), 3.0) << panel;
}

TEST(Icons, stayInShapeInAnyArea)
{
    EXPECT_FALSE(Icons::application().isNull());
    EXPECT_FALSE(Icons::status().isNull());
    EXPECT_EQ(Icons::status().actualSize(QSize(40, 22)), QSize(22, 22));
    EXPECT_EQ(drawn(Icons::application(), 64).pixelColor(0, 0).alpha(), 0) << "rounded corners";
    const QImage square = drawn(Icons::status(), 22);
    const auto drawnInto = [](int width, int height) {
        return Icons::status()
            .pixmap(QSize(width, height))
            .toImage()
            .convertToFormat(QImage::Format_ARGB32);
    };
    EXPECT_EQ(drawnInto(40, 22).copy(9, 0, 22, 22), square);
    EXPECT_EQ(drawnInto(22, 40).copy(0, 9, 22, 22), square);
}

} // namespace

} // namespace quillbox
