#include "tests/app/window_fixture.h"
#include "ui/frame_sizer.h"

#include <QApplication>
#include <QFocusFrame>
#include <QProxyStyle>
#include <QScrollBar>
#include <algorithm>
#include <string>

namespace quillbox {

namespace {

class WindowHeight : public WindowFixture {
protected:
    /// Sets a list of that many phones, without updating the window.
    void setPhones(int count)
    {
        delegate->discoveredDevices.clear();
        for (int number = 0; number < count; ++number) {
            const std::string name = "Quillbox " + std::to_string(number);
            delegate->discoveredDevices.push_back({.endpoint = phoneNamed(name), .name = name});
        }
    }

    void showPhones(int count)
    {
        setPhones(count);
        delegate->updateDeviceList();
        settle();
    }

    QSize frame() const { return window().frameGeometry().size(); }

    QVariantAnimation& animation() const { return delegate->frameSizer->animation(); }
};

/// The style of a desktop whose user has turned animations off.
class StillStyle final : public QProxyStyle {
public:
    int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                  QStyleHintReturn* returned) const override
    {
        return hint == SH_Widget_Animation_Duration
                   ? 0
                   : QProxyStyle::styleHint(hint, option, widget, returned);
    }
};

TEST_F(WindowHeight, theContentKeepsItsFirstSizeUntilTheFirstUpdate)
{
    launch();
    layOut();
    EXPECT_EQ(window().size(), QSize(440, 340));
    EXPECT_EQ(frame(), QSize(440 + 2 * kBorder, 340 + 2 * kBorder));
    delegate->updateWindowHeight();
    settle();
    EXPECT_EQ(frame(), QSize(440, 340));
    EXPECT_EQ(window().size(), QSize(440 - 2 * kBorder, 340 - 2 * kBorder));
}

TEST_F(WindowHeight, eachPhoneAddsAStepToTheFrame)
{
    open();
    const int folded[] = {340, 382, 404, 426, 448};
    for (int count = 0; count < 5; ++count) {
        showPhones(count);
        EXPECT_EQ(frame(), QSize(440, folded[count])) << count;
    }
    showPhones(0);
    EXPECT_EQ(frame(), QSize(440, 340));
}

TEST_F(WindowHeight, theUnfoldedFormStartsTheStepsAt520)
{
    open();
    delegate->toggleAdvanced();
    settle();
    EXPECT_EQ(frame(), QSize(440, 520));
    showPhones(1);
    EXPECT_EQ(frame(), QSize(440, 562));
    delegate->toggleAdvanced();
    settle();
    EXPECT_EQ(frame(), QSize(440, 382));
}

TEST_F(WindowHeight, nothingGrowsBeyond700)
{
    open();
    showPhones(15);
    EXPECT_EQ(frame(), QSize(440, 690));
    showPhones(16);
    EXPECT_EQ(frame(), QSize(440, 700));
    showPhones(256);
    EXPECT_EQ(frame(), QSize(440, 700));
    delegate->toggleAdvanced();
    showPhones(7);
    EXPECT_EQ(frame(), QSize(440, 694));
    showPhones(8);
    EXPECT_EQ(frame(), QSize(440, 700));
}

TEST_F(WindowHeight, theTopLeftCornerStays)
{
    open();
    window().move(60, 70);
    const QPoint corner = window().frameGeometry().topLeft();
    showPhones(3);
    EXPECT_EQ(window().frameGeometry().topLeft(), corner);
    delegate->toggleAdvanced();
    settle();
    EXPECT_EQ(window().frameGeometry().topLeft(), corner);
}

TEST_F(WindowHeight, changesBitByBit)
{
    open();
    delegate->toggleAdvanced();
    layOut();
    ASSERT_EQ(animation().state(), QAbstractAnimation::Running);
    EXPECT_GT(animation().totalDuration(), 100);
    EXPECT_LT(animation().totalDuration(), 400);
    int last = 340;
    EXPECT_EQ(frame(), QSize(440, last));
    for (int time = 50; time < animation().totalDuration(); time += 50) {
        animation().setCurrentTime(time);
        EXPECT_GT(frame().height(), last);
        EXPECT_EQ(frame().width(), 440);
        last = frame().height();
    }
    EXPECT_LT(last, 520);
    animation().setCurrentTime(animation().totalDuration() / 2);
    EXPECT_GT(frame().height(), 340 + 180 * 3 / 4) << "quickly at first";
    animation().setCurrentTime(animation().totalDuration());
    EXPECT_EQ(frame().height(), 520);
}

TEST_F(WindowHeight, aChangeInTheMiddleOfAnotherGoesOnFromThere)
{
    open();
    delegate->toggleAdvanced();
    animation().setCurrentTime(100);
    const int middle = frame().height();
    ASSERT_GT(middle, 340);
    ASSERT_LT(middle, 520);
    delegate->toggleAdvanced();
    EXPECT_EQ(frame().height(), middle);
    settle();
    EXPECT_EQ(frame().height(), 340);
}

TEST_F(WindowHeight, movingTheWindowDoesNotEndAChange)
{
    open();
    delegate->toggleAdvanced();
    settle();
    delegate->toggleAdvanced();
    window().move(60, 70);
    layOut();
    EXPECT_EQ(frame().height(), 520);
}

TEST_F(WindowHeight, aRedrawInTheMiddleOfAChangeDoesNotBeginItAgain)
{
    open();
    delegate->toggleAdvanced();
    animation().setCurrentTime(150);
    delegate->updateDeviceList();
    EXPECT_EQ(animation().currentTime(), 150);
}

TEST_F(WindowHeight, aHiddenWindowChangesAtOnce)
{
    open();
    window().close();
    setPhones(2);
    delegate->updateDeviceList();
    EXPECT_EQ(animation().state(), QAbstractAnimation::Stopped);
    delegate->showHelper();
    layOut();
    EXPECT_EQ(frame(), QSize(440, 404));
}

TEST_F(WindowHeight, aMinimisedWindowChangesAtOnce)
{
    open();
    window().setWindowState(Qt::WindowMinimized);
    setPhones(2);
    delegate->updateDeviceList();
    EXPECT_EQ(animation().state(), QAbstractAnimation::Stopped);
}

TEST_F(WindowHeight, changesAtOnceWhereNothingIsToMove)
{
    open();
    QApplication::setStyle(new StillStyle);
    delegate->toggleAdvanced();
    EXPECT_EQ(animation().state(), QAbstractAnimation::Stopped);
    EXPECT_EQ(frame(), QSize(440, 520));
}

TEST_F(WindowHeight, theFoldedFormNeverScrolls)
{
    open();
    for (int count = 0; count <= 15; ++count) {
        showPhones(count);
        EXPECT_FALSE(isScrolling()) << count;
    }
}

TEST_F(WindowHeight, spareHeightGathersBelowTheContent)
{
    launch();
    layOut();
    const QRect before = place(delegate->showInFinder);
    window().setFixedSize(440, 600);
    layOut();
    EXPECT_EQ(place(delegate->showInFinder), before);
}

TEST_F(WindowHeight, whatScrollsIsAsWideAsBefore)
{
    open();
    const int width = delegate->showInFinder.parentWidget()->width();
    showPhones(20);
    ASSERT_TRUE(isScrolling());
    EXPECT_EQ(delegate->showInFinder.parentWidget()->width(), width);
    EXPECT_EQ(place(*delegate->showInFinder.parentWidget()).left(), 22 - kBorder);
    EXPECT_EQ(area().horizontalScrollBar()->maximum(), 0);
    const QWidget& card = *delegate->showInFinder.parentWidget();
    EXPECT_LE(place(card).right(), area().viewport()->width());
}

TEST_F(WindowHeight, theEndOfTheContentIsReachedByScrolling)
{
    open();
    showPhones(20);
    QScrollBar& bar = *area().verticalScrollBar();
    bar.setValue(bar.maximum());
    const QWidget& content = *area().widget();
    EXPECT_EQ(content.geometry().bottom(), area().viewport()->rect().bottom());
}

TEST_F(WindowHeight, noScrollBarFlashesUpWhileTheHeightChanges)
{
    open();
    delegate->toggleAdvanced();
    for (int time = 0; time < animation().totalDuration(); time += 40) {
        animation().setCurrentTime(time);
        layOut();
        EXPECT_FALSE(area().verticalScrollBar()->isVisible()) << time;
    }
    settle();
    EXPECT_EQ(area().verticalScrollBar()->isVisible(), isScrolling());
}

TEST_F(WindowHeight, noEdgeFadesOutWhileTheHeightChanges)
{
    open();
    showPhones(13);
    const auto isAnyEdgeShown = [this] {
        const auto parts =
            area().viewport()->findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly);
        return std::ranges::any_of(parts, [this](const QWidget* part) {
            return part != area().widget() && !dynamic_cast<const QFocusFrame*>(part)
                   && part->isVisible();
        });
    };
    EXPECT_FALSE(isAnyEdgeShown());
    delegate->toggleAdvanced();
    animation().setCurrentTime(animation().totalDuration() / 2);
    layOut();
    EXPECT_FALSE(isAnyEdgeShown());
    settle();
    ASSERT_TRUE(isScrolling());
    EXPECT_TRUE(isAnyEdgeShown());
}

} // namespace

} // namespace quillbox
