#include "tests/app/window_fixture.h"
#include "ui/look/brand.h"
#include "ui/look/helper_style.h"

#include <QApplication>
#include <QMenu>
#include <QMessageBox>
#include <QMetaEnum>
#include <QPalette>
#include <QStyleFactory>
#include <QToolTip>
#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillbox {

namespace {

constexpr QPalette::ColorGroup kGroups[] = {QPalette::Active, QPalette::Inactive,
                                            QPalette::Disabled};

/// The palette of a dark desktop.
QPalette darkPalette()
{
    QPalette palette(QColor(0x24, 0x1f, 0x31));
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText,
                            QPalette::ToolTipText, QPalette::PlaceholderText})
        palette.setColor(role, Qt::white);
    for (const auto role : {QPalette::Base, QPalette::AlternateBase, QPalette::ToolTipBase})
        palette.setColor(role, QColor(0x1d, 0x1d, 0x1d));
    return palette;
}

class Appearance : public WindowFixture {
protected:
    /// Sets the palettes that a dark desktop sets before the program starts, and on theme changes.
    static void darken()
    {
        QApplication::setPalette(darkPalette());
        for (const char* name : {"QMenu", "QLabel", "QAbstractButton", "QLineEdit", "QMessageBox"})
            QApplication::setPalette(darkPalette(), name);
        QToolTip::setPalette(darkPalette());
    }

    /// The radius of the top left corner, from the area that it leaves transparent. Rounded down:
    /// antialiasing makes that area larger, as if the radius were up to half a pixel longer.
    static int radiusOf(QWidget& widget)
    {
        QImage picture(widget.size(), QImage::Format_ARGB32_Premultiplied);
        picture.fill(Qt::transparent);
        widget.render(&picture, {}, {}, {});
        const int size = std::min({20, widget.width() / 2, widget.height() / 2});
        double transparent = 0;
        for (int y = 0; y < size; ++y) {
            for (int x = 0; x < size; ++x)
                transparent += 1 - qAlpha(picture.pixel(x, y)) / 255.0;
        }
        return static_cast<int>(std::sqrt(transparent / (1 - std::numbers::pi / 4)));
    }

    static void expectLight(const QPalette& palette, const char* what)
    {
        for (const auto group : kGroups) {
            for (const auto role : {QPalette::Window, QPalette::Base, QPalette::Button,
                                    QPalette::AlternateBase, QPalette::ToolTipBase})
                EXPECT_GT(palette.color(group, role).lightness(), 200) << what << ' ' << role;
            for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText,
                                    QPalette::ToolTipText})
                EXPECT_LT(palette.color(group, role).lightness(), 128) << what << ' ' << role;
        }
    }

    void expectEverythingLight()
    {
        expectLight(QApplication::palette(), "application");
        expectLight(QToolTip::palette(), "tool tip");
        expectLight(delegate->statusItem->menu().palette(), "menu of the status item");
        expectLight(QMenu(&window()).palette(), "menu");
        const QMessageBox alert(&window());
        expectLight(alert.palette(), "alert");
        expectLight(window().palette(), "window");
        for (const auto* part : window().findChildren<QWidget*>()) {
            const int lightness = part->palette().color(part->backgroundRole()).lightness();
            EXPECT_GT(lightness, 200) << part->metaObject()->className();
        }
        EXPECT_EQ(pictureOf(window()).pixelColor(3, 3), Brand::surface);
    }
};

TEST_F(Appearance, isLightOnADarkDesktop)
{
    darken();
    open();
    delegate->toggleAdvanced();
    findPhones({phoneNamed("Quillbox")});
    findManagement({phoneNamed("Quillbox")});
    settle();
    expectEverythingLight();
}

TEST_F(Appearance, staysLightWhenTheDesktopTurnsDark)
{
    open();
    darken();
    QEvent change(QEvent::ThemeChange);
    QApplication::sendEvent(&window(), &change);
    settle();
    expectEverythingLight();
}

TEST_F(Appearance, leavesNoColourForTheDesktopToFillIn)
{
    open();
    const QPalette palette = QApplication::palette();
    for (const auto group : kGroups) {
        for (int role = 0; role < QPalette::NColorRoles; ++role) {
            if (role == QPalette::NoRole)
                continue;
            EXPECT_TRUE(palette.isBrushSet(group, QPalette::ColorRole(role)))
                << group << ' ' << role;
        }
    }
}

TEST_F(Appearance, theStyleIsItsOwnWhateverTheDesktopsIs)
{
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Windows")));
    open();
    EXPECT_TRUE(dynamic_cast<HelperStyle*>(QApplication::style()));
    EXPECT_TRUE(dynamic_cast<HelperStyle*>(delegate->showInFinder.style()));
}

TEST_F(Appearance, whatIsDisabledInAMenuIsReadable)
{
    open();
    const QPalette palette = delegate->statusItem->menu().palette();
    const int text = palette.color(QPalette::Disabled, QPalette::Text).lightness();
    EXPECT_LT(text, 118);
    EXPECT_GT(text, palette.color(QPalette::Active, QPalette::Text).lightness());
}

TEST_F(Appearance, aCheckBoxShowsItsState)
{
    open();
    QCheckBox& box = delegate->showInFinder;
    const auto indicator = [&box](const QPoint& place) { return pictureOf(box).pixelColor(place); };
    box.setChecked(false);
    EXPECT_EQ(indicator({0, 8}), Brand::slate);
    EXPECT_EQ(indicator({8, 8}), QColor(Qt::white));
    box.setChecked(true);
    EXPECT_EQ(indicator({0, 8}), Brand::blue);
    EXPECT_EQ(indicator({3, 4}), Brand::blue);
    EXPECT_EQ(indicator({7, 10}), QColor(Qt::white)) << "the tick";
}

TEST_F(Appearance, aPushButtonIsPaleWithABlueBorderAndAnswersToAPress)
{
    open();
    QPushButton& management = *button(QStringLiteral("Open web management"));
    const auto fill = [&management] {
        return pictureOf(management).pixelColor(4, management.height() / 2);
    };
    EXPECT_EQ(fill(), Brand::pale);
    EXPECT_EQ(pictureOf(management).pixelColor(0, management.height() / 2), Brand::blue);
    management.setDown(true);
    EXPECT_LT(fill().lightness(), Brand::pale.lightness());
}

TEST_F(Appearance, theCornersAreRoundedAsTheyShouldBe)
{
    open();
    delegate->toggleAdvanced();
    settle();
    QWidget& card = *delegate->showInFinder.parentWidget();
    QWidget& status = *delegate->statusLabel.parentWidget();
    EXPECT_EQ(radiusOf(card), 16);
    EXPECT_EQ(radiusOf(status), 10);
    EXPECT_EQ(radiusOf(*button(QStringLiteral("Open in Finder"))), 9);
}

TEST_F(Appearance, theAdvancedButtonHasNoBorder)
{
    open();
    const QImage picture = pictureOf(*area().widget()).copy(place(delegate->advancedButton));
    bool isPlain = true;
    for (int x = 0; x < picture.width(); ++x) {
        for (const int y : {0, picture.height() - 1})
            isPlain = isPlain && picture.pixelColor(x, y) == QColor(Qt::white);
    }
    EXPECT_TRUE(isPlain);
}

TEST_F(Appearance, theDefaultButtonOfAnAlertIsBlue)
{
    open();
    delegate->openManagement();
    layOut();
    auto* alert = window().findChild<QMessageBox*>();
    ASSERT_TRUE(alert);
    ASSERT_EQ(alert->buttons().size(), 1);
    QAbstractButton* ok = alert->buttons().front();
    EXPECT_EQ(pictureOf(*ok).pixelColor(3, ok->height() / 2), Brand::blue);
    EXPECT_TRUE(ok->icon().isNull());
    const QImage picture = pictureOf(*ok);
    int lightest = 0;
    for (int x = 4; x < picture.width() - 4; ++x) {
        for (int y = 4; y < picture.height() - 4; ++y)
            lightest = std::max(lightest, picture.pixelColor(x, y).lightness());
    }
    EXPECT_EQ(lightest, 255) << "its text is white";
}

} // namespace

} // namespace quillbox
