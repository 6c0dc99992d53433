#include "tests/ui/window_fixture.h"

#include <QAccessible>
#include <set>
#include <string>

namespace quillbox {

namespace {

class Accessibility : public WindowFixture {
protected:
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

TEST_F(Accessibility, theFoldSaysWhatItWillDo)
{
    open();
    EXPECT_EQ(nameOf(delegate->advancedButton), "Advanced");
    const std::string folded = descriptionOf(delegate->advancedButton);
    delegate->toggleAdvanced();
    EXPECT_NE(descriptionOf(delegate->advancedButton), folded);
    delegate->toggleAdvanced();
    EXPECT_EQ(descriptionOf(delegate->advancedButton), folded);
}

} // namespace

} // namespace quillbox
