#include "tests/app/window_fixture.h"
#include "ui/dot_label.h"
#include "ui/look/brand.h"
#include "ui/look/rounded_box.h"
#include "ui/look/text_style.h"
#include "ui/overlay_scroll_bar.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QEnterEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionSlider>
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace quillbox {

namespace {

/// The relative luminance of a colour, as in WCAG 2.2.
double luminance(const QColor& colour)
{
    const auto linear = [](double component) {
        return component <= 0.04045 ? component / 12.92
                                    : std::pow((component + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF())
           + 0.0722 * linear(colour.blueF());
}

double contrast(const QColor& one, const QColor& other)
{
    const double lighter = std::max(luminance(one), luminance(other));
    const double darker = std::min(luminance(one), luminance(other));
    return (lighter + 0.05) / (darker + 0.05);
}

class Look : public WindowFixture {
protected:
    void openWithEverything()
    {
        open();
        showPhones(2);
        delegate->toggleAdvanced();
        settle();
    }

    void showPhones(int count)
    {
        std::vector<Endpoint> phones;
        for (int number = 10; number < 10 + count; ++number)
            phones.push_back(phoneNamed("Quillbox " + std::to_string(number)));
        findPhones(phones);
        findManagement(phones);
        settle();
    }

    std::vector<QPushButton*> ordinaryButtons() const
    {
        std::vector<QPushButton*> buttons{button(QStringLiteral("Open web management")),
                                          button(QStringLiteral("Restart service"))};
        for (const DeviceRow* row : rows())
            buttons.push_back(row->manageButton());
        return buttons;
    }

    std::vector<QLineEdit*> fields() const
    {
        return {&delegate->hostField, &delegate->portField, &delegate->shareField,
                &delegate->userField};
    }

    QWidget& card() const { return *delegate->showInFinder.parentWidget(); }

    OverlayScrollBar& bar() const
    {
        return dynamic_cast<OverlayScrollBar&>(*area().verticalScrollBar());
    }

    QStyleOptionSlider stateOfBar() const
    {
        QStyleOptionSlider option;
        option.initFrom(&bar());
        option.orientation = Qt::Vertical;
        option.minimum = bar().minimum();
        option.maximum = bar().maximum();
        option.sliderPosition = bar().sliderPosition();
        option.pageStep = bar().pageStep();
        return option;
    }

    QRect partOfBar(QStyle::SubControl part) const
    {
        const QStyleOptionSlider state = stateOfBar();
        return bar().style()->subControlRect(QStyle::CC_ScrollBar, &state, part, &bar());
    }

    /// Which part a press at that height is for.
    QStyle::SubControl partOfBarAt(int y) const
    {
        const QStyleOptionSlider state = stateOfBar();
        return bar().style()->hitTestComplexControl(QStyle::CC_ScrollBar, &state, {6, y}, &bar());
    }

    /// The colour of the window at a point of its viewport.
    QColor shownAt(const QPoint& point) const
    {
        return pictureOf(window()).pixelColor(area().viewport()->mapTo(&window(), point));
    }

    /// Checks the border in the middle of the left and upper edges, where it is straight.
    void expectVisibleBorder(QWidget& control, const QColor& outside, const char* what) const
    {
        const QImage picture = pictureOf(control);
        const QPoint inwards[] = {{1, 0}, {0, 1}};
        const QPoint edges[] = {{0, control.height() / 2}, {control.width() / 2, 0}};
        for (int side = 0; side < 2; ++side) {
            const QColor border = picture.pixelColor(edges[side]);
            const QColor fill = picture.pixelColor(edges[side] + inwards[side]);
            EXPECT_GE(contrast(border, outside), 3) << what << ' ' << border.name().toStdString();
            EXPECT_GE(contrast(border, fill), 3) << what << ' ' << fill.name().toStdString();
        }
    }
};

TEST_F(Look, theBordersOfControlsAreVisible)
{
    openWithEverything();
    const QColor white(Qt::white);
    for (QPushButton* button : ordinaryButtons())
        expectVisibleBorder(*button, white, "button");
    for (QLineEdit* field : fields())
        expectVisibleBorder(*field, white, "field");
    delegate->showInFinder.setChecked(false);
    const QImage box = pictureOf(delegate->showInFinder);
    EXPECT_GE(contrast(box.pixelColor(0, 8), white), 3) << "unchecked";
    delegate->showInFinder.setChecked(true);
    EXPECT_GE(contrast(pictureOf(delegate->showInFinder).pixelColor(0, 8), white), 3) << "checked";
}

TEST_F(Look, aButtonDoesNotLookLikeAField)
{
    openWithEverything();
    const QImage button = pictureOf(*ordinaryButtons()[0]);
    const QImage field = pictureOf(delegate->hostField);
    const auto at = [](const QImage& picture, int x) {
        return picture.pixelColor(x, picture.height() / 2);
    };
    EXPECT_NE(at(button, 0), at(field, 0)) << "border";
    EXPECT_NE(at(button, 4), at(field, 2)) << "fill";
}

TEST_F(Look, theTextOfAButtonIsReadableWhateverHappensToIt)
{
    openWithEverything();
    QPushButton& restart = *button(QStringLiteral("Restart service"));
    const auto fill = [&restart] { return pictureOf(restart).pixelColor(4, restart.height() / 2); };
    EXPECT_GE(contrast(fill(), Brand::navy), 4.5);
    restart.setAttribute(Qt::WA_UnderMouse);
    EXPECT_GE(contrast(fill(), Brand::navy), 4.5);
    restart.setDown(true);
    EXPECT_GE(contrast(fill(), Brand::navy), 4.5);
}

TEST_F(Look, buttonsAreDarkerUnderThePointerAndDarkerStillWhenPressed)
{
    openWithEverything();
    for (QPushButton* one :
         {button(QStringLiteral("Restart service")), button(QStringLiteral("Open in Finder"))}) {
        const auto luminanceOfFill = [one] {
            return luminance(pictureOf(*one).pixelColor(5, one->height() / 2));
        };
        const double atRest = luminanceOfFill();
        one->setAttribute(Qt::WA_UnderMouse);
        const double hovered = luminanceOfFill();
        one->setDown(true);
        EXPECT_LT(hovered, atRest) << one->text().toStdString();
        EXPECT_LT(luminanceOfFill(), hovered) << one->text().toStdString();
    }
}

TEST_F(Look, anUncheckedBoxAnswersToThePointer)
{
    open();
    QCheckBox& box = delegate->showInFinder;
    box.setChecked(false);
    const auto fill = [&box] { return pictureOf(box).pixelColor(8, 8); };
    EXPECT_EQ(fill(), QColor(Qt::white));
    box.setAttribute(Qt::WA_UnderMouse);
    EXPECT_EQ(fill(), Brand::pale);
    box.setDown(true);
    EXPECT_EQ(fill(), Brand::border);
}

TEST_F(Look, theTickIsInsideTheBoxWhereverThatStands)
{
    open();
    QCheckBox box;
    box.setChecked(true);
    box.resize(60, 40);
    EXPECT_EQ(pictureOf(box).pixelColor(7, 12 + 10), QColor(Qt::white));
}

TEST_F(Look, theTextThatFoldsIsDarkerUnderThePointer)
{
    open();
    const auto darkest = [this] {
        const QImage picture = pictureOf(delegate->advancedButton);
        double least = 1;
        for (int y = 0; y < picture.height(); ++y) {
            for (int x = 0; x < picture.width(); ++x)
                least = std::min(least, luminance(picture.pixelColor(x, y)));
        }
        return least;
    };
    const double atRest = darkest();
    delegate->advancedButton.setAttribute(Qt::WA_UnderMouse);
    EXPECT_LT(darkest(), atRest);
}

TEST_F(Look, theTextThatFoldsHasNoRoomAroundIt)
{
    open();
    const QPushButton& fold = delegate->advancedButton;
    EXPECT_LE(fold.width(), widthOf(fold.text(), fold.font()) + 4);
}

TEST_F(Look, onlyTallButtonsHaveVeryRoundCorners)
{
    open();
    QPushButton one;
    const auto isCornerFilled = [&one](int height) {
        one.resize(80, height);
        return pictureOf(one).pixelColor(2, 1) != pictureOf(one).pixelColor(0, 0);
    };
    EXPECT_TRUE(isCornerFilled(29));
    EXPECT_FALSE(isCornerFilled(30));
}

TEST_F(Look, theCornersOfABoxAreAsHighAsWide)
{
    RoundedBox box({.radius = 16, .fill = Qt::white, .border = Brand::navy});
    box.resize(40, 40);
    const QImage picture = pictureOf(box);
    for (int x = 0; x < 20; ++x) {
        for (int y = 0; y < x; ++y) {
            const int turned = picture.pixelColor(y, x).lightness();
            EXPECT_NEAR(picture.pixelColor(x, y).lightness(), turned, 12) << x << ' ' << y;
        }
    }
}

TEST_F(Look, aBoxLeavesThePainterAsItWas)
{
    QImage picture(20, 20, QImage::Format_RGB32);
    QPainter painter(&picture);
    const QPen pen = painter.pen();
    const QBrush brush = painter.brush();
    const QPainter::RenderHints hints = painter.renderHints();
    RoundedBox::paint(painter, picture.rect(), {.radius = 5, .fill = Qt::red, .border = Qt::blue});
    EXPECT_EQ(painter.pen(), pen);
    EXPECT_EQ(painter.brush(), brush);
    EXPECT_EQ(painter.renderHints(), hints);
}

TEST_F(Look, theButtonsOfTheCardAreEquallyHigh)
{
    openWithEverything();
    // A family with lower lines than usual.
    for (QPushButton* one : ordinaryButtons()) {
        QFont low = one->font();
        low.setPixelSize(6);
        one->setFont(low);
    }
    settle();
    for (const QPushButton* one : ordinaryButtons()) {
        EXPECT_EQ(one->height(), ordinaryButtons()[0]->height()) << one->text().toStdString();
        EXPECT_EQ(one->font().pixelSize(), ordinaryButtons()[0]->font().pixelSize());
    }
    for (const QLineEdit* field : fields())
        EXPECT_EQ(field->height(), fields()[0]->height());
}

TEST_F(Look, dotsHaveTheSameSizeInEveryFont)
{
    const QFont before = QApplication::font();
    for (const char* family : {"DejaVu Sans", "Noto Sans", "Cantarell"}) {
        QApplication::setFont(QFont(QString::fromLatin1(family)));
        DotLabel dot;
        TextStyle{.size = 12, .colour = Brand::green}.apply(dot);
        dot.resize(dot.sizeHint());
        EXPECT_EQ(dot.size(), QSize(10, 10)) << family;
        const QImage picture = pictureOf(dot);
        for (const QPoint& edge : {QPoint(0, 5), QPoint(9, 5), QPoint(5, 0), QPoint(5, 9)})
            EXPECT_GT(picture.pixelColor(edge).green(), picture.pixelColor(edge).red()) << family;
        dot.resize(20, 20);
        const QImage roomy = pictureOf(dot);
        EXPECT_EQ(roomy.pixelColor(10, 10), roomy.pixelColor(19, 10)) << family;
    }
    QApplication::setFont(before);
}

TEST_F(Look, theMarginsAreEqual)
{
    open();
    showPhones(1);
    for (int width = 430; width <= 440; ++width) {
        setContentSize({width, 345});
        const QRect content = place(card());
        const int right = area().viewport()->width() - content.right() - 1;
        EXPECT_EQ(content.width(), 396);
        EXPECT_LE(std::abs(right - content.left()), 1) << width;
        EXPECT_EQ(right + content.left(), width - 396);
    }
}

TEST_F(Look, theUnfoldedCardIsClosedAtTheBottom)
{
    openWithEverything();
    ASSERT_FALSE(isScrolling());
    const QRect box = place(card());
    EXPECT_LT(box.bottom(), area().viewport()->height());
    EXPECT_EQ(shownAt({box.center().x(), box.bottom()}), Brand::border);
    EXPECT_EQ(shownAt(box.bottomLeft()), Brand::surface) << "the corner is round";
    EXPECT_EQ(shownAt(box.bottomRight()), Brand::surface);
}

TEST_F(Look, aCardThatGoesOnFadesOut)
{
    open();
    showPhones(12);
    delegate->toggleAdvanced();
    settle();
    ASSERT_TRUE(isScrolling());
    const int bottom = area().viewport()->height() - 1;
    const int left = place(card()).left();
    EXPECT_LT(contrast(shownAt({left, bottom}), Brand::surface), 1.02);
    EXPECT_EQ(shownAt({left, bottom - 40}), Brand::border);
    EXPECT_NE(shownAt({left, bottom - 8}), Brand::border);
    const QWidget* below = area().viewport()->childAt(left + 20, bottom);
    EXPECT_TRUE(area().widget()->isAncestorOf(below)) << "it takes no clicks";

    bar().setValue(bar().maximum());
    EXPECT_LT(contrast(shownAt({left, 0}), Brand::surface), 1.02);
    EXPECT_EQ(shownAt({left, 40}), Brand::border);
    const QRect box = place(card()).translated(area().widget()->pos());
    EXPECT_EQ(shownAt({box.center().x(), box.bottom()}), Brand::border) << "the end";
}

TEST_F(Look, theScrollBarTakesNoRoom)
{
    open();
    showPhones(30);
    ASSERT_TRUE(isScrolling());
    EXPECT_TRUE(bar().isVisible());
    EXPECT_EQ(area().viewport()->width(), area().width());
    EXPECT_FALSE(bar().testAttribute(Qt::WA_OpaquePaintEvent)) << "the content shows through";
    EXPECT_EQ(bar().mapTo(&window(), QPoint(bar().width(), 0)).x(), window().width());
    EXPECT_GT(place(card()).right(), 0);
    EXPECT_LT(place(card()).right(), bar().mapTo(&window(), QPoint()).x());
}

TEST_F(Look, theScrollBarHasAHandleAndPagesBesideIt)
{
    open();
    showPhones(30);
    ASSERT_TRUE(isScrolling());
    for (const int value : {0, bar().maximum() / 2, bar().maximum()}) {
        bar().setValue(value);
        const QRect handle = partOfBar(QStyle::SC_ScrollBarSlider);
        EXPECT_EQ(handle.top() == 0, value == 0) << value;
        EXPECT_EQ(handle.bottom() == bar().height() - 1, value == bar().maximum()) << value;
        for (int y = 0; y < bar().height(); ++y) {
            const auto expected = y < handle.top()      ? QStyle::SC_ScrollBarSubPage
                                  : y > handle.bottom() ? QStyle::SC_ScrollBarAddPage
                                                        : QStyle::SC_ScrollBarSlider;
            EXPECT_EQ(partOfBarAt(y), expected) << value << ' ' << y;
        }
    }
}

TEST_F(Look, theScrollBarHasAHandleHoweverMuchThereIs)
{
    open();
    bar().resize(12, 300);
    bar().setRange(0, 100'000);
    EXPECT_EQ(partOfBar(QStyle::SC_ScrollBarSlider).height(), 24);
    bar().resize(12, 10);
    EXPECT_EQ(partOfBar(QStyle::SC_ScrollBarSlider).height(), 10);
}

TEST_F(Look, theScrollBarOfAnAreaWithoutHeightHasAHandle)
{
    open();
    bar().resize(12, 300);
    bar().setRange(0, 0);
    bar().setPageStep(0);
    EXPECT_GT(partOfBar(QStyle::SC_ScrollBarSlider).height(), 0);
}

TEST_F(Look, theScrollBarIsSeenWhileItMatters)
{
    open();
    showPhones(30);
    const auto fadeOut = [this](double left = 0) {
        bar().animation().setCurrentTime(bar().animation().totalDuration());
        EXPECT_EQ(bar().strength(), left);
    };
    const auto isPainted = [this] {
        const QPoint middle = bar().mapTo(&window(), QPoint(bar().width() - 6, 0));
        const QImage picture = pictureOf(window());
        bool isAny = false;
        for (int y = 0; y < picture.height(); ++y)
            isAny = isAny || contrast(picture.pixelColor(middle.x(), y), Brand::surface) >= 3;
        return isAny;
    };
    EXPECT_TRUE(isPainted()) << "when there is more than fits";
    fadeOut();
    EXPECT_FALSE(isPainted());
    bar().setValue(50);
    EXPECT_TRUE(isPainted()) << "while scrolling";
    fadeOut();
    pressTab(window());
    EXPECT_TRUE(isPainted()) << "when the focus moves";
    fadeOut();
    bar().setSliderDown(true);
    fadeOut(1);
    EXPECT_TRUE(isPainted()) << "while it is dragged";
    bar().setSliderDown(false);
    fadeOut();
    bar().setAttribute(Qt::WA_UnderMouse);
    EXPECT_TRUE(isPainted()) << "below the pointer";
    bar().setAttribute(Qt::WA_UnderMouse, false);
    EXPECT_FALSE(isPainted());
}

TEST_F(Look, aScrollBarThatIsNotNeededWakesNothing)
{
    open();
    pressTab(window());
    EXPECT_FALSE(bar().isVisible());
    EXPECT_EQ(bar().animation().state(), QAbstractAnimation::Stopped);
}

TEST_F(Look, theScrollBarFadesOutByItself)
{
    open();
    showPhones(30);
    bar().setValue(50);
    EXPECT_EQ(bar().animation().state(), QAbstractAnimation::Running);
    const int all = bar().animation().totalDuration();
    EXPECT_GE(all, 1000);
    EXPECT_LE(all, 2000);
    bar().animation().setCurrentTime(all / 2);
    EXPECT_EQ(bar().strength(), 1);
    EventCounter painted(bar(), QEvent::Paint);
    QCoreApplication::processEvents();
    bar().animation().setCurrentTime(all - 50);
    EXPECT_LT(bar().strength(), 1);
    EXPECT_GT(bar().strength(), 0);
    painted.count = 0;
    const QDeadlineTimer limit(5000);
    while (painted.count == 0 && !limit.hasExpired())
        QCoreApplication::processEvents();
    EXPECT_GT(painted.count, 0);
    bar().setValue(60);
    EXPECT_EQ(bar().strength(), 1) << "scrolling starts it again";
}

} // namespace

} // namespace quillbox
