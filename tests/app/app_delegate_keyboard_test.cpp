#include "tests/app/window_fixture.h"
#include "ui/look/brand.h"
#include "ui/look/focus_ring.h"

#include <QApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMessageBox>
#include <QScrollBar>
#include <QShortcut>
#include <set>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Keyboard : public WindowFixture {
protected:
    void openWithPhones(std::initializer_list<const char*> names)
    {
        open();
        std::vector<Endpoint> phones;
        for (const char* name : names)
            phones.push_back(phoneNamed(name));
        findPhones(phones);
        findManagement(phones);
        settle();
    }

    /// The text of a control, which identifies it.
    std::string nameOf(const QWidget& control) const
    {
        if (const auto* field = qobject_cast<const QLineEdit*>(&control))
            return field->accessibleName().toStdString();
        if (const auto* button = qobject_cast<const QAbstractButton*>(&control))
            return button->text().toStdString();
        return "something else";
    }

    /// The controls that the Tab key visits, in one round.
    std::vector<std::string> round(bool backwards = false)
    {
        std::vector<std::string> names;
        std::set<const QWidget*> seen;
        for (;;) {
            pressTab(window(), backwards);
            const QWidget* focused = window().focusWidget();
            if (focused == nullptr || !seen.insert(focused).second)
                return names;
            names.push_back(nameOf(*focused));
        }
    }

    FocusRing& ring() const
    {
        return dynamic_cast<FocusRing&>(*window().findChild<QFocusFrame*>());
    }

    void pressInFocus(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QWidget* focused = window().focusWidget();
        press(*focused, key, modifiers);
    }
};

TEST_F(Keyboard, tabGoesFromTopToBottom)
{
    openWithPhones({});
    delegate->showInFinder.setFocus();
    EXPECT_THAT(round(),
                ElementsAre("Open web management", "Advanced ▸", "Show Quillbox in Finder"));
}

TEST_F(Keyboard, tabGoesThroughTheUnfoldedFormToo)
{
    openWithPhones({"Quillbox A", "Quillbox B"});
    delegate->toggleAdvanced();
    settle();
    delegate->showInFinder.setFocus();
    const std::vector<std::string> order{"Manage",
                                         "Manage",
                                         "Open web management",
                                         "Advanced ▾",
                                         "Find Quillbox automatically",
                                         "Phone IP or name",
                                         "SMB port",
                                         "Default share",
                                         "Username",
                                         "Restart service",
                                         "Open in Finder",
                                         "Show Quillbox in Finder"};
    EXPECT_EQ(round(), order);
    delegate->showInFinder.setFocus();
    int last = place(delegate->showInFinder).center().y();
    for (std::size_t step = 0; step + 1 < order.size(); ++step) {
        pressTab(window());
        const int middle = place(*window().focusWidget()).center().y();
        EXPECT_GE(middle, last) << order[step];
        last = middle;
    }
}

TEST_F(Keyboard, tabGoesBackTheSameWay)
{
    openWithPhones({"Quillbox A"});
    delegate->showInFinder.setFocus();
    EXPECT_THAT(round(true), ElementsAre("Advanced ▸", "Open web management", "Manage",
                                         "Show Quillbox in Finder"));
}

TEST_F(Keyboard, theOrderOutlivesRedraws)
{
    openWithPhones({"Quillbox A", "Quillbox B"});
    for (int redraw = 0; redraw < 3; ++redraw)
        delegate->updateDeviceList();
    settle();
    delegate->showInFinder.setFocus();
    EXPECT_THAT(round(), ElementsAre("Manage", "Manage", "Open web management", "Advanced ▸",
                                     "Show Quillbox in Finder"));
    delegate->showInFinder.setFocus();
    pressTab(window());
    EXPECT_EQ(window().focusWidget(), rows()[0]->manageButton());
}

TEST_F(Keyboard, returnPressesTheButtonThatHasTheFocus)
{
    openWithPhones({});
    delegate->advancedButton.setFocus();
    pressInFocus(Qt::Key_Return);
    EXPECT_TRUE(delegate->advancedVisible);
    pressInFocus(Qt::Key_Enter, Qt::KeypadModifier);
    EXPECT_FALSE(delegate->advancedVisible);
}

TEST_F(Keyboard, aKeyThatIsHeldDownActsOnce)
{
    openWithPhones({});
    delegate->toggleAdvanced();
    settle();
    QPushButton& restart = *button(QStringLiteral("Restart service"));
    for (const int key : {Qt::Key_Return, Qt::Key_Enter, Qt::Key_Space}) {
        const auto before = defaults.writes.size();
        restart.setFocus();
        hold(restart, key);
        release(restart, key);
        EXPECT_EQ(defaults.writes.size(), before + 1) << key;
    }
}

TEST_F(Keyboard, escapeThatIsHeldDownRestoresAFieldAndLeavesTheWindowOpen)
{
    openWithPhones({});
    delegate->toggleAdvanced();
    settle();
    delegate->shareField.setFocus();
    delegate->shareField.setText(QStringLiteral("after"));
    hold(delegate->shareField, Qt::Key_Escape);
    EXPECT_EQ(delegate->shareField.text(), QStringLiteral("NAS"));
    EXPECT_TRUE(window().isVisible());
}

TEST_F(Keyboard, spacePressesToo)
{
    openWithPhones({});
    delegate->advancedButton.setFocus();
    pressInFocus(Qt::Key_Space);
    release(delegate->advancedButton, Qt::Key_Space);
    EXPECT_TRUE(delegate->advancedVisible);
    const bool wasChecked = delegate->showInFinder.isChecked();
    delegate->showInFinder.setFocus();
    pressInFocus(Qt::Key_Space);
    release(delegate->showInFinder, Qt::Key_Space);
    EXPECT_NE(delegate->showInFinder.isChecked(), wasChecked);
}

TEST_F(Keyboard, aRedrawBetweenPressAndReleaseOfSpaceKeepsTheClick)
{
    openWithPhones({"Quillbox A"});
    rows()[0]->manageButton()->setFocus();
    pressInFocus(Qt::Key_Space);
    delegate->updateDeviceList();
    settle();
    release(*rows()[0]->manageButton(), Qt::Key_Space);
    EXPECT_EQ(network.dnsSd().resolutions().size(), 1U);
}

TEST_F(Keyboard, onlyAKeyThatDoesSomethingCountsAsHandled)
{
    openWithPhones({});
    const auto isHandled = [this](int key) {
        QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier);
        QApplication::sendEvent(&window(), &event);
        return event.isAccepted();
    };
    delegate->advancedButton.setFocus();
    EXPECT_FALSE(isHandled(Qt::Key_F5));
    EXPECT_TRUE(isHandled(Qt::Key_Return));
    EXPECT_TRUE(isHandled(Qt::Key_Escape));
}

TEST_F(Keyboard, returnInAFieldPressesNoButton)
{
    openWithPhones({});
    delegate->toggleAdvanced();
    settle();
    delegate->shareField.setFocus();
    pressInFocus(Qt::Key_Return);
    EXPECT_TRUE(delegate->advancedVisible);
    EXPECT_THAT(workspace.opened, IsEmpty());
    EXPECT_TRUE(delegate->shareField.hasFocus());
}

TEST_F(Keyboard, escapePutsTheWindowAway)
{
    openWithPhones({});
    pressInFocus(Qt::Key_Escape);
    EXPECT_FALSE(window().isVisible());
    EXPECT_EQ(terminations, 0);
}

TEST_F(Keyboard, escapeInAFieldGivesBackItsTextFirst)
{
    openWithPhones({});
    delegate->toggleAdvanced();
    settle();
    for (EditField* field : {&delegate->hostField, &delegate->portField, &delegate->shareField,
                             &delegate->userField}) {
        field->fill(QStringLiteral("before"));
        field->setFocus();
        field->setText(QStringLiteral("after"));
        pressInFocus(Qt::Key_Escape);
        EXPECT_EQ(field->text(), QStringLiteral("before"));
        EXPECT_TRUE(window().isVisible());
        EXPECT_TRUE(field->hasFocus());
    }
    pressInFocus(Qt::Key_Escape);
    EXPECT_FALSE(window().isVisible());
}

TEST_F(Keyboard, escapeGivesBackWhatReturnTook)
{
    openWithPhones({});
    delegate->toggleAdvanced();
    settle();
    delegate->shareField.setFocus();
    delegate->shareField.setText(QStringLiteral("taken"));
    pressInFocus(Qt::Key_Return);
    delegate->shareField.setText(QStringLiteral("taken and more"));
    pressInFocus(Qt::Key_Escape);
    EXPECT_EQ(delegate->shareField.text(), QStringLiteral("taken"));
}

TEST_F(Keyboard, anotherWindowInBetweenIsNotTheBeginningOfAnEdit)
{
    openWithPhones({});
    delegate->toggleAdvanced();
    settle();
    delegate->shareField.fill(QStringLiteral("before"));
    delegate->shareField.setFocus();
    delegate->shareField.setText(QStringLiteral("after"));
    activateAnother();
    activate();
    ASSERT_TRUE(delegate->shareField.hasFocus());
    pressInFocus(Qt::Key_Escape);
    EXPECT_EQ(delegate->shareField.text(), QStringLiteral("before"));
}

TEST_F(Keyboard, controlAndWPutsAwayAndControlAndQQuits)
{
    openWithPhones({});
    const auto trigger = [this](Qt::Key key) {
        for (auto* shortcut : window().findChildren<QShortcut*>()) {
            if (shortcut->key() == QKeySequence(Qt::CTRL | key))
                Q_EMIT shortcut->activated();
        }
    };
    trigger(Qt::Key_W);
    EXPECT_FALSE(window().isVisible());
    EXPECT_EQ(terminations, 0);
    trigger(Qt::Key_Q);
    EXPECT_EQ(terminations, 1);
}

TEST_F(Keyboard, whatGetsTheFocusIsScrolledTo)
{
    open();
    delegate->discoveredDevices.clear();
    for (int number = 10; number < 40; ++number) {
        const std::string name = "Quillbox " + std::to_string(number);
        delegate->discoveredDevices.push_back({.endpoint = phoneNamed(name), .name = name});
    }
    delegate->updateDeviceList();
    delegate->toggleAdvanced();
    settle();
    ASSERT_TRUE(isScrolling());
    for (int step = 0; step < 20; ++step) {
        pressTab(window());
        const QWidget& focused = *window().focusWidget();
        const QRect shown = area().viewport()->rect();
        const QRect where(focused.mapTo(area().viewport(), QPoint()), focused.size());
        EXPECT_TRUE(shown.contains(where)) << nameOf(focused);
    }
}

TEST_F(Keyboard, thePageKeysScrollFromAnywhere)
{
    open();
    delegate->toggleAdvanced();
    setContentSize({440, 300});
    QScrollBar& bar = *area().verticalScrollBar();
    ASSERT_GT(bar.maximum(), 0);
    delegate->showInFinder.setFocus();
    bar.setValue(0);
    pressInFocus(Qt::Key_PageDown);
    EXPECT_GT(bar.value(), 0);
    pressInFocus(Qt::Key_PageUp);
    EXPECT_EQ(bar.value(), 0);
}

TEST_F(Keyboard, aRingSurroundsTheFocus)
{
    openWithPhones({"Quillbox A"});
    delegate->toggleAdvanced();
    settle();
    std::set<const QWidget*> seen;
    for (pressTab(window()); seen.insert(window().focusWidget()).second; pressTab(window())) {
        const QWidget& focused = *window().focusWidget();
        ASSERT_EQ(ring().widget(), &focused) << nameOf(focused);
        EXPECT_TRUE(ring().isVisible()) << nameOf(focused);
        const QRect around(ring().mapTo(area().viewport(), QPoint()), ring().size());
        const QRect control(focused.mapTo(area().viewport(), QPoint()), focused.size());
        EXPECT_EQ(around, control.adjusted(-4, -4, 4, 4)) << nameOf(focused);
    }
    const QImage picture = pictureOf(ring());
    for (const int x : {0, 1})
        EXPECT_EQ(picture.pixelColor(x, picture.height() / 2), Brand::blue) << x;
    EXPECT_NE(picture.pixelColor(2, picture.height() / 2), Brand::blue);
}

TEST_F(Keyboard, noRingSurroundsTheFieldOfAnotherWindow)
{
    open();
    QWidget another;
    QLineEdit other(&another);
    another.show();
    another.activateWindow();
    other.setFocus();
    QCoreApplication::processEvents();
    ASSERT_TRUE(other.hasFocus());
    EXPECT_FALSE(ring().widget());
}

TEST_F(Keyboard, noRingSurroundsTheWindow)
{
    open();
    delegate->advancedButton.setFocus();
    window().setAttribute(Qt::WA_KeyboardFocusChange);
    window().setFocus();
    ASSERT_TRUE(window().hasFocus());
    EXPECT_FALSE(ring().widget());
}

TEST_F(Keyboard, theRingKeepsUpWithScrolling)
{
    open();
    delegate->toggleAdvanced();
    settle();
    window().setFixedHeight(300);
    layOut();
    pressTab(window());
    area().verticalScrollBar()->setValue(30);
    layOut();
    const QWidget& focused = *window().focusWidget();
    EXPECT_EQ(ring().mapTo(&window(), QPoint(4, 4)), focused.mapTo(&window(), QPoint()));
}

TEST_F(Keyboard, aClickShowsNoRingExceptInAField)
{
    open();
    delegate->toggleAdvanced();
    settle();
    window().setAttribute(Qt::WA_KeyboardFocusChange, false);
    delegate->advancedButton.setFocus(Qt::MouseFocusReason);
    EXPECT_FALSE(ring().isVisible());
    delegate->hostField.setFocus(Qt::MouseFocusReason);
    EXPECT_EQ(ring().widget(), &delegate->hostField);
    EXPECT_TRUE(ring().isVisible());
}

TEST_F(Keyboard, theRingLeavesWithTheFocus)
{
    open();
    pressTab(window());
    ASSERT_TRUE(ring().isVisible());
    activateAnother();
    EXPECT_FALSE(ring().isVisible());
}

} // namespace

} // namespace quillbox
