#include "tests/app/app_fixture.h"

#include <vector>

namespace quillbox {

namespace {

class MainWindow : public AppFixture {};

TEST_F(MainWindow, holdsEveryControl)
{
    launch();
    for (const QWidget* control : std::vector<const QWidget*>{
             &delegate->showInFinder, &delegate->automaticDiscovery, &delegate->statusDot,
             &delegate->statusLabel, &delegate->deviceListStack, &delegate->advancedButton,
             &delegate->hostField, &delegate->portField, &delegate->shareField,
             &delegate->userField})
        EXPECT_EQ(control->window(), delegate->window.get());
    EXPECT_EQ(delegate->window->windowTitle(), QStringLiteral("Quillbox Helper"));
}

TEST_F(MainWindow, theAdvancedFormFoldsAndUnfolds)
{
    launch();
    EXPECT_FALSE(delegate->advancedForm->isVisible());
    delegate->advancedButton.click();
    EXPECT_TRUE(delegate->advancedVisible);
    EXPECT_TRUE(delegate->advancedForm->isVisible());
    EXPECT_EQ(delegate->advancedButton.text(), QStringLiteral("Advanced ▾"));
    delegate->advancedButton.click();
    EXPECT_FALSE(delegate->advancedVisible);
    EXPECT_FALSE(delegate->advancedForm->isVisible());
    EXPECT_EQ(delegate->advancedButton.text(), QStringLiteral("Advanced ▸"));
}

TEST_F(MainWindow, settingACheckBoxFromTheProgramIsNoClick)
{
    launch();
    delegate->showInFinder.setChecked(false);
    delegate->automaticDiscovery.setChecked(false);
    EXPECT_TRUE(defaults.writes.empty());
}

} // namespace

} // namespace quillbox
