#include "tests/app/window_fixture.h"

#include <QAccessible>
#include <algorithm>
#include <cstddef>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <private/qguiapplication_p.h>
#include <qpa/qplatformaccessibility.h>
#include <qpa/qplatformintegration.h>

namespace quillbox {

namespace {

using ::testing::IsEmpty;
using ::testing::Not;

/// Records what Qt reports to assistive technologies while it exists. There is one at a time.
class Reports final {
public:
    Reports()
    {
        current = this;
        setActive(true);
        before = QAccessible::installUpdateHandler([](QAccessibleEvent* event) {
            current->all.emplace_back(event->object(), event->type());
            if (event->type() == QAccessible::StateChanged)
                current->changed =
                    static_cast<QAccessibleStateChangeEvent*>(event)->changedStates();
        });
    }
    ~Reports()
    {
        QAccessible::installUpdateHandler(before);
        setActive(false);
    }

    Reports(const Reports&) = delete;
    Reports& operator=(const Reports&) = delete;

    /// What the last change of a state was about.
    QAccessible::State changedStates() const { return changed; }

    std::ptrdiff_t count(const QObject& object, QAccessible::Event type) const
    {
        return std::ranges::count(all, std::pair(&object, type));
    }

private:
    /// As the bridge to assistive technologies does while one of them runs.
    static void setActive(bool isActive)
    {
        QGuiApplicationPrivate::platformIntegration()->accessibility()->setActive(isActive);
    }

    static inline Reports* current = nullptr;

    std::vector<std::pair<const QObject*, QAccessible::Event>> all;
    QAccessible::State changed;
    QAccessible::UpdateHandler before = nullptr;
};

class Accessibility : public WindowFixture {
protected:
    static void act(QWidget& widget, const QString& action)
    {
        QAccessibleActionInterface* actions = interfaceOf(widget).actionInterface();
        ASSERT_TRUE(actions->actionNames().contains(action)) << action.toStdString();
        actions->doAction(action);
    }

    /// The children of the list, as assistive technologies find them.
    std::vector<QAccessibleInterface*> listItems() const
    {
        const QAccessibleInterface& list = interfaceOf(delegate->deviceListStack);
        std::vector<QAccessibleInterface*> items;
        for (int index = 0; index < list.childCount(); ++index) {
            items.push_back(list.child(index));
            EXPECT_EQ(list.indexOfChild(items.back()), index);
        }
        return items;
    }

    static QAccessibleInterface& interfaceOf(QWidget& widget)
    {
        return *QAccessible::queryAccessibleInterface(&widget);
    }

    static std::string nameOf(QWidget& widget)
    {
        return interfaceOf(widget).text(QAccessible::Name).toStdString();
    }

    static std::string descriptionOf(QWidget& widget)
    {
        return interfaceOf(widget).text(QAccessible::Description).toStdString();
    }
};

TEST_F(Accessibility, everyControlHasANameAndADescription)
{
    open();
    findPhones({phoneNamed("Quillbox A")});
    findManagement({phoneNamed("Quillbox A")});
    delegate->toggleAdvanced();
    settle();
    int controls = 0;
    for (auto* widget : window().findChildren<QWidget*>()) {
        if (!widget->isVisible() || widget->focusPolicy() == Qt::NoFocus)
            continue;
        ++controls;
        EXPECT_NE(nameOf(*widget), "") << widget->metaObject()->className();
        EXPECT_NE(descriptionOf(*widget), "") << nameOf(*widget);
    }
    EXPECT_EQ(controls, 11);
}

TEST_F(Accessibility, theFieldsAreCalledLikeTheirLabels)
{
    open();
    EXPECT_EQ(nameOf(delegate->hostField), "Phone IP or name");
    EXPECT_EQ(nameOf(delegate->portField), "SMB port");
    EXPECT_EQ(nameOf(delegate->shareField), "Default share");
    EXPECT_EQ(nameOf(delegate->userField), "Username");
    std::set<const QWidget*> labelled;
    for (auto* label : window().findChildren<QLabel*>()) {
        if (label->buddy()) {
            EXPECT_EQ(label->buddy()->accessibleName(), label->text());
            labelled.insert(label->buddy());
        }
    }
    EXPECT_EQ(labelled, (std::set<const QWidget*>{&delegate->hostField, &delegate->portField,
                                                  &delegate->shareField, &delegate->userField}));
}

TEST_F(Accessibility, aManageButtonSaysWhose)
{
    open();
    findPhones({phoneNamed("Quillbox A&B"), phoneNamed("Quillbox \u202eC\u202c")});
    findManagement({phoneNamed("Quillbox A&B"), phoneNamed("Quillbox \u202eC\u202c")});
    EXPECT_EQ(nameOf(*rows()[0]->manageButton()), "Manage Quillbox A&B");
    EXPECT_EQ(nameOf(*rows()[1]->manageButton()), "Manage Quillbox \uFFFDC\uFFFD");
}

TEST_F(Accessibility, aRowIsCalledLikeItsPhone)
{
    open();
    findPhones({phoneNamed("Quillbox A")});
    EXPECT_EQ(nameOf(*rows()[0]), "Quillbox A");
    EXPECT_EQ(nameOf(delegate->deviceListStack), "Available Quillbox devices");
}

TEST_F(Accessibility, noDotIsReadAsASign)
{
    open();
    findPhones({phoneNamed("Quillbox A")});
    settle();
    int dots = 0;
    for (auto* label : window().findChildren<QLabel*>()) {
        if (label->text() == QStringLiteral("●")) {
            ++dots;
            EXPECT_NE(nameOf(*label), "●");
        }
    }
    EXPECT_EQ(dots, 2) << "of the status and of the phone";
    delegate->setStatus({.ready = true, .text = "one"});
    EXPECT_EQ(nameOf(delegate->statusDot), "Finder service on");
    delegate->setStatus({.ready = false, .text = "two"});
    EXPECT_EQ(nameOf(delegate->statusDot), "Finder service off");
}

TEST_F(Accessibility, theDotTellsTheServiceBeforeTheFirstReportToo)
{
    create();
    delegate->buildWindow();
    EXPECT_EQ(nameOf(delegate->statusDot), "Finder service off");
    EXPECT_EQ(nameOf(delegate->statusLabel), statusText());
}

TEST_F(Accessibility, theStatusIsAStatusBar)
{
    open();
    QAccessibleInterface* box = interfaceOf(delegate->statusLabel).parent();
    ASSERT_TRUE(box);
    EXPECT_EQ(box->role(), QAccessible::StatusBar);
    EXPECT_EQ(box->text(QAccessible::Name), QStringLiteral("Status"));
    EXPECT_EQ(box->childCount(), 2);
    EXPECT_EQ(interfaceOf(delegate->statusLabel).role(), QAccessible::Notification);
    EXPECT_EQ(nameOf(delegate->statusLabel), statusText());
}

TEST_F(Accessibility, aStatusIsAnnouncedOnceAndOnlyWhereItIsSeen)
{
    open();
    const Reports reports;
    const auto announced = [&] {
        return reports.count(delegate->statusLabel, QAccessible::ObjectShow);
    };
    delegate->setStatus({.ready = false, .text = "one"});
    EXPECT_EQ(announced(), 1);
    delegate->setStatus({.ready = false, .text = "one"});
    EXPECT_EQ(announced(), 1);
    delegate->setStatus({.ready = false, .text = "two"});
    EXPECT_EQ(announced(), 2);
    window().hide();
    delegate->setStatus({.ready = false, .text = "three"});
    EXPECT_EQ(announced(), 2);
}

TEST_F(Accessibility, theWholeStatusIsReadEvenWhereItIsElided)
{
    open();
    const std::string text = "Could not start Finder service: " + std::string(300, 'W');
    delegate->setStatus({.ready = false, .text = text});
    settle();
    EXPECT_TRUE(delegate->statusLabel.isElided());
    EXPECT_EQ(nameOf(delegate->statusLabel), text);
}

TEST_F(Accessibility, theFormIsNotReadWhileItIsFolded)
{
    open();
    EXPECT_TRUE(interfaceOf(delegate->hostField).state().invisible);
    delegate->toggleAdvanced();
    settle();
    EXPECT_FALSE(interfaceOf(delegate->hostField).state().invisible);
}

TEST_F(Accessibility, theFoldIsExpandable)
{
    open();
    QPushButton& fold = delegate->advancedButton;
    EXPECT_EQ(nameOf(fold), "Advanced");
    EXPECT_EQ(interfaceOf(fold).role(), QAccessible::Button);
    for (const bool isExpanded : {false, true, false}) {
        const QAccessible::State state = interfaceOf(fold).state();
        EXPECT_TRUE(state.expandable);
        EXPECT_EQ(state.expanded, isExpanded);
        EXPECT_EQ(state.collapsed, !isExpanded);
        EXPECT_EQ(descriptionOf(fold), isExpanded ? "The settings of the connection are shown"
                                                  : "The settings of the connection are hidden");
        act(fold, QAccessibleActionInterface::pressAction());
        EXPECT_EQ(delegate->advancedVisible, !isExpanded);
    }
}

TEST_F(Accessibility, foldingIsReported)
{
    open();
    const Reports reports;
    for (const std::ptrdiff_t times : {1, 2}) {
        delegate->toggleAdvanced();
        EXPECT_EQ(reports.count(delegate->advancedButton, QAccessible::StateChanged), times);
        EXPECT_TRUE(reports.changedStates().expanded);
        EXPECT_TRUE(reports.changedStates().collapsed);
    }
}

TEST_F(Accessibility, aButtonThatIsHeldDownIsPressed)
{
    open();
    EXPECT_FALSE(interfaceOf(delegate->advancedButton).state().pressed);
    delegate->advancedButton.setDown(true);
    EXPECT_TRUE(interfaceOf(delegate->advancedButton).state().pressed);
}

TEST_F(Accessibility, givingAButtonTheFocusIsNoClick)
{
    open();
    act(delegate->advancedButton, QAccessibleActionInterface::setFocusAction());
    EXPECT_TRUE(delegate->advancedButton.hasFocus());
    EXPECT_FALSE(delegate->advancedVisible);
}

TEST_F(Accessibility, noOtherButtonIsExpandable)
{
    open();
    for (auto* other : window().findChildren<QPushButton*>())
        EXPECT_EQ(interfaceOf(*other).state().expandable, other == &delegate->advancedButton);
    EXPECT_FALSE(interfaceOf(delegate->showInFinder).state().collapsed);
}

TEST_F(Accessibility, aToggleIsAClick)
{
    launchManually();
    for (QCheckBox* box : {&delegate->showInFinder, &delegate->automaticDiscovery}) {
        EXPECT_EQ(interfaceOf(*box).role(), QAccessible::CheckBox);
        EXPECT_EQ(nameOf(*box), box->text().toStdString());
        for (int click = 0; click < 2; ++click) {
            const bool wasChecked = box->isChecked();
            defaults.writes.clear();
            act(*box, QAccessibleActionInterface::toggleAction());
            dispatch.runAll();
            EXPECT_EQ(box->isChecked(), !wasChecked);
            EXPECT_EQ(interfaceOf(*box).state().checked, !wasChecked);
            EXPECT_TRUE(interfaceOf(*box).state().checkable);
            EXPECT_THAT(defaults.writes, Not(IsEmpty())) << nameOf(*box);
        }
    }
    act(delegate->showInFinder, QAccessibleActionInterface::toggleAction());
    dispatch.runAll();
    EXPECT_THAT(runningListeners(), IsEmpty());
    EXPECT_EQ(statusText(), "Finder visibility is off");
}

TEST_F(Accessibility, whatTheProgramSetsIsNoClick)
{
    launchManually();
    const auto relays = runningListeners();
    defaults.writes.clear();
    markStatus();
    for (QCheckBox* box : {&delegate->showInFinder, &delegate->automaticDiscovery}) {
        box->setChecked(!box->isChecked());
        box->setChecked(!box->isChecked());
    }
    dispatch.runAll();
    EXPECT_THAT(defaults.writes, IsEmpty());
    EXPECT_EQ(runningListeners(), relays);
    EXPECT_TRUE(isStatusMarked());
}

TEST_F(Accessibility, thePhonesAreAList)
{
    open();
    EXPECT_EQ(interfaceOf(delegate->deviceListStack).role(), QAccessible::List);
    EXPECT_TRUE(interfaceOf(delegate->deviceListStack).state().invisible);
    EXPECT_THAT(listItems(), IsEmpty());
    for (int redraw = 0; redraw < 2; ++redraw) {
        findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
        findManagement({phoneNamed("Quillbox B")});
        settle();
        EXPECT_FALSE(interfaceOf(delegate->deviceListStack).state().invisible);
        const auto items = listItems();
        ASSERT_EQ(items.size(), 2U);
        for (std::size_t index = 0; index < items.size(); ++index) {
            EXPECT_EQ(items[index]->role(), QAccessible::ListItem);
            EXPECT_EQ(items[index]->object(), rows()[index]);
            EXPECT_EQ(items[index]->parent(), &interfaceOf(delegate->deviceListStack));
        }
        EXPECT_EQ(items[0]->text(QAccessible::Name), QStringLiteral("Quillbox A"));
        EXPECT_EQ(items[1]->text(QAccessible::Name), QStringLiteral("Quillbox B"));
        EXPECT_EQ(items[0]->childCount(), 3);
        EXPECT_EQ(items[1]->childCount(), 4) << "with its button";
        findPhones({});
    }
}

} // namespace

} // namespace quillbox
