#include "ui/icons.h"

#include <QColor>
#include <QImage>
#include <QPainter>
#include <QPixmap>
#include <algorithm>
#include <cmath>

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

TEST(Icons, standOutFromAnyPanel)
{
    const QImage picture = drawn(Icons::status(), 64);
    int solid = 0;
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            const QColor colour = picture.pixelColor(x, y);
            if (colour.alpha() != 255)
                continue;
            ++solid;
            for (const char* panel : {"#ffffff", "#eff0f1", "#31363b", "#241f31", "#000000"})
                ASSERT_GE(contrast(colour, QColor(QLatin1String(panel))), 3.0) << panel;
        }
    }
    EXPECT_GT(solid, 64);
}

TEST(Icons, stayInShapeInAnyArea)
{
    EXPECT_FALSE(Icons::application().isNull());
    EXPECT_FALSE(Icons::status().isNull());
    EXPECT_EQ(Icons::status().actualSize(QSize(40, 22)), QSize(22, 22));
    EXPECT_EQ(drawn(Icons::application(), 64).pixelColor(0, 0).alpha(), 0) << "rounded corners";
}

} // namespace

} // namespace quillbox
