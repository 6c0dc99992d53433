#include "tests/app/app_fixture.h"

#include <QApplication>
#include <QFocusEvent>
#include <QKeyEvent>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AppDelegateSettings : public AppFixture {
protected:
    static void leave(QWidget& field, Qt::FocusReason reason)
    {
        QFocusEvent event(QEvent::FocusOut, reason);
        QApplication::sendEvent(&field, &event);
    }

    static void press(QWidget& field, int key)
    {
        QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier);
        QApplication::sendEvent(&field, &event);
    }

    /// Types a character and deletes it, which is an edit.
    static void edit(QWidget& field)
    {
        QKeyEvent character(QEvent::KeyPress, Qt::Key_1, Qt::NoModifier, QStringLiteral("1"));
        QApplication::sendEvent(&field, &character);
        press(field, Qt::Key_Backspace);
    }

    /// In manual mode: types both fields and ends the edit.
    void startManually(const QString& host, const QString& port)
    {
        delegate->hostField.setText(host);
        delegate->portField.setText(port);
        delegate->controlTextDidEndEditing();
        dispatch.runAll();
    }

    /// Whether the action, which ends an edit, restarts the manual relay.
    template <class Action> bool restarts(Action action)
    {
        const auto before = network.listeners.size();
        action();
        dispatch.runAll();
        return network.listeners.size() > before;
    }
};

TEST_F(AppDelegateSettings, anEmptyStoreGivesTheDefaultsAndAutomaticMode)
{
    launch();
    EXPECT_EQ(delegate->hostField.text(), QString());
    EXPECT_EQ(delegate->portField.text(), QStringLiteral("4445"));
    EXPECT_EQ(delegate->shareField.text(), QStringLiteral("NAS"));
    EXPECT_EQ(delegate->userField.text(), QStringLiteral("nas"));
    EXPECT_TRUE(delegate->showInFinder.isChecked());
    EXPECT_TRUE(delegate->automaticDiscovery.isChecked());
    EXPECT_EQ(statusText(), "Looking for Quillbox on this network…");
    EXPECT_THAT(defaults.writes, IsEmpty());
}

TEST_F(AppDelegateSettings, storedTextsFillTheFieldsUnchanged)
{
    defaults.values = {{"host", " h "}, {"port", "no port"}, {"share", " s "}, {"user", ""}};
    create();
    EXPECT_EQ(delegate->hostField.text(), QStringLiteral(" h "));
    EXPECT_EQ(delegate->portField.text(), QStringLiteral("no port"));
    EXPECT_EQ(delegate->shareField.text(), QStringLiteral(" s "));
    EXPECT_EQ(delegate->userField.text(), QString());
}

TEST_F(AppDelegateSettings, whatIsNoTextCountsAsTheDefault)
{
    defaults.values = {{"host", true}, {"port", true}, {"share", false}, {"user", false}};
    create();
    EXPECT_EQ(delegate->hostField.text(), QString());
    EXPECT_EQ(delegate->portField.text(), QStringLiteral("4445"));
    EXPECT_EQ(delegate->shareField.text(), QStringLiteral("NAS"));
    EXPECT_EQ(delegate->userField.text(), QStringLiteral("nas"));
}

TEST_F(AppDelegateSettings, theStoreIsReadOnlyTwice)
{
    create();
    EXPECT_THAT(defaults.reads, ElementsAre("host", "port", "share", "user"));
    defaults.reads.clear();
    launch();
    EXPECT_THAT(defaults.reads, ElementsAre("showInFinder", "automaticDiscovery"));
    defaults.reads.clear();
    delegate->showInFinder.click();
    delegate->automaticDiscovery.click();
    delegate->restartFromMenu();
    EXPECT_THAT(defaults.reads, IsEmpty());
}

TEST_F(AppDelegateSettings, aPortWithALeadingBlankIsRefused)
{
    launchManually();
    defaults.writes.clear();
    startManually(QStringLiteral("192.0.2.7"), QStringLiteral(" 445"));
    EXPECT_EQ(statusText(), "Enter a valid SMB port");
    EXPECT_FALSE(isStatusReady());
    EXPECT_THAT(runningListeners(), IsEmpty());
    EXPECT_THAT(defaults.writes, IsEmpty());
}

TEST_F(AppDelegateSettings, aPortWithALeadingPlusSignIsStoredWithoutIt)
{
    launchManually();
    startManually(QStringLiteral("192.0.2.7"), QStringLiteral("+0445"));
    EXPECT_EQ(storedText("port"), "445");
    EXPECT_EQ(runningListeners().size(), 1U);
}

TEST_F(AppDelegateSettings, zeroAndMinusZeroAreRefusedAsPorts)
{
    launchManually();
    for (const char* port : {"0", "-0", "+0", "000"}) {
        markStatus();
        startManually(QStringLiteral("192.0.2.7"), QString::fromLatin1(port));
        EXPECT_EQ(statusText(), "Enter a valid SMB port") << port;
        EXPECT_THAT(runningListeners(), IsEmpty()) << port;
    }
}

TEST_F(AppDelegateSettings, aHostIsUsedAndStoredWithoutTheBlanksAroundIt)
{
    launchManually();
    // The line break is U+2028, which a single-line field keeps.
    startManually(QStringLiteral(" \u00a0 192.0.2.8 \u2028"), QStringLiteral("4445"));
    EXPECT_EQ(storedText("host"), "192.0.2.8");
    EXPECT_EQ(targetOf(listenerNamed("Quillbox")), (HostEndpoint{"192.0.2.8", 4445}));
}

TEST_F(AppDelegateSettings, aHostWithAnAtSignOrASlashAnywhereIsRefused)
{
    launchManually();
    defaults.writes.clear();
    for (const char* host : {"nas@192.0.2.7", "@", "smb://192.0.2.7", "192.0.2.7/NAS", "", "  "}) {
        markStatus();
        startManually(QString::fromLatin1(host), QStringLiteral("4445"));
        EXPECT_EQ(statusText(), "Enter the local IP address shown in Quillbox") << host;
        EXPECT_FALSE(isStatusReady());
        EXPECT_THAT(runningListeners(), IsEmpty()) << host;
    }
    EXPECT_THAT(defaults.writes, IsEmpty());
}

TEST_F(AppDelegateSettings, ofAWrongHostAndAWrongPortTheHostIsReported)
{
    launchManually();
    startManually(QString(), QStringLiteral("no port"));
    EXPECT_EQ(statusText(), "Enter the local IP address shown in Quillbox");
}

TEST_F(AppDelegateSettings, shareAndUserAreStoredWithTheirBlanks)
{
    launchManually();
    delegate->shareField.setText(QStringLiteral("  Photos "));
    delegate->userField.setText(QStringLiteral(" me "));
    startManually(QStringLiteral("192.0.2.7"), QStringLiteral("4445"));
    EXPECT_EQ(storedText("share"), "  Photos ");
    EXPECT_EQ(storedText("user"), " me ");
}

TEST_F(AppDelegateSettings, fieldsAreWrittenInAFixedOrder)
{
    create();
    delegate->saveFields("h", 9);
    EXPECT_THAT(defaults.writes, ElementsAre("host", "port", "share", "user"));
}

TEST_F(AppDelegateSettings, aStoredPortOfZeroIsShownAtTheNextLaunch)
{
    create();
    delegate->saveFields("", 0);
    delegate = nullptr;
    launch();
    EXPECT_EQ(delegate->portField.text(), QStringLiteral("0"));
}

TEST_F(AppDelegateSettings, endingAnEditDoesNothingInAutomaticMode)
{
    launch();
    markStatus();
    delegate->hostField.setText(QStringLiteral("192.0.2.7"));
    press(delegate->hostField, Qt::Key_Return);
    leave(delegate->hostField, Qt::TabFocusReason);
    EXPECT_TRUE(isStatusMarked());
    EXPECT_THAT(network.listeners, IsEmpty());
    EXPECT_THAT(defaults.writes, IsEmpty());
}

TEST_F(AppDelegateSettings, endingAnEditDoesNothingWhileFinderVisibilityIsOff)
{
    launchManually();
    delegate->showInFinder.click();
    dispatch.runAll();
    edit(delegate->hostField);
    EXPECT_FALSE(restarts([this] { leave(delegate->hostField, Qt::TabFocusReason); }));
}

TEST_F(AppDelegateSettings, endingAnEditOfHostOrPortRestartsTheManualRelay)
{
    launchManually();
    for (QLineEdit* field : {&delegate->hostField, &delegate->portField}) {
        edit(*field);
        EXPECT_TRUE(restarts([&] { leave(*field, Qt::TabFocusReason); }));
        edit(*field);
        EXPECT_TRUE(restarts([&] { leave(*field, Qt::MouseFocusReason); }));
        EXPECT_TRUE(restarts([&] { press(*field, Qt::Key_Return); }));
    }
    EXPECT_EQ(runningListeners().size(), 1U);
}

TEST_F(AppDelegateSettings, whatWasNotEditedEndsNoEdit)
{
    launchManually();
    const auto listener = runningListeners().front();
    for (QLineEdit* field : {&delegate->hostField, &delegate->portField}) {
        EXPECT_FALSE(restarts([&] { leave(*field, Qt::TabFocusReason); }));
        EXPECT_FALSE(restarts([&] { leave(*field, Qt::MouseFocusReason); }));
    }
    EXPECT_EQ(runningListeners().front(), listener) << "sessions were interrupted";
}

TEST_F(AppDelegateSettings, leavingTheWindowOrOpeningTheFieldsMenuEndsNoEdit)
{
    launchManually();
    edit(delegate->hostField);
    edit(delegate->portField);
    EXPECT_FALSE(restarts([this] { leave(delegate->hostField, Qt::ActiveWindowFocusReason); }));
    EXPECT_FALSE(restarts([this] { leave(delegate->portField, Qt::PopupFocusReason); }));
}

TEST_F(AppDelegateSettings, endingAnEditOfShareOrUserSetsNothingOff)
{
    launchManually();
    for (QLineEdit* field : {&delegate->shareField, &delegate->userField}) {
        edit(*field);
        EXPECT_FALSE(restarts([&] { leave(*field, Qt::TabFocusReason); }));
        EXPECT_FALSE(restarts([&] { press(*field, Qt::Key_Return); }));
    }
}

TEST_F(AppDelegateSettings, switchingAutomaticDiscoveryWithFinderVisibilityOffOnlyStoresIt)
{
    defaults.values["showInFinder"] = false;
    launch();
    findPhones({phoneNamed("Quillbox A")});
    markStatus();
    delegate->automaticDiscovery.click();
    delegate->automaticDiscovery.click();
    dispatch.runAll();
    EXPECT_THAT(defaults.writes, ElementsAre("automaticDiscovery", "automaticDiscovery"));
    EXPECT_EQ(storedBool("automaticDiscovery"), true);
    EXPECT_THAT(network.listeners, IsEmpty());
    EXPECT_TRUE(isStatusMarked());
}

TEST_F(AppDelegateSettings, turningFinderVisibilityOffStopsEveryRelay)
{
    launch();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    ASSERT_EQ(runningListeners().size(), 2U);
    delegate->showInFinder.click();
    dispatch.runAll();
    EXPECT_EQ(storedBool("showInFinder"), false);
    EXPECT_THAT(runningListeners(), IsEmpty());
    EXPECT_EQ(statusText(), "Finder visibility is off");
    EXPECT_FALSE(isStatusReady());
}

TEST_F(AppDelegateSettings, turningFinderVisibilityOnStartsTheRelays)
{
    defaults.values["showInFinder"] = false;
    launch();
    findPhones({phoneNamed("Quillbox A")});
    delegate->showInFinder.click();
    dispatch.runAll();
    EXPECT_EQ(storedBool("showInFinder"), true);
    EXPECT_THAT(runningNames(), ElementsAre("Quillbox A"));
}

TEST_F(AppDelegateSettings, theRestartCommandTurnsFinderVisibilityOnAndStoresIt)
{
    defaults.values["showInFinder"] = false;
    launch();
    findPhones({phoneNamed("Quillbox A")});
    delegate->restartFromMenu();
    dispatch.runAll();
    EXPECT_TRUE(delegate->showInFinder.isChecked());
    EXPECT_EQ(storedBool("showInFinder"), true);
    EXPECT_THAT(defaults.writes, ElementsAre("showInFinder"));
    EXPECT_THAT(runningNames(), ElementsAre("Quillbox A"));
}

TEST_F(AppDelegateSettings, checkBoxesStoredAsTextsCountAsOn)
{
    defaults.values = {{"showInFinder", "false"}, {"automaticDiscovery", "no"}};
    launch();
    EXPECT_TRUE(delegate->showInFinder.isChecked());
    EXPECT_TRUE(delegate->automaticDiscovery.isChecked());
    EXPECT_EQ(statusText(), "Looking for Quillbox on this network…");
}

TEST_F(AppDelegateSettings, fieldsStoredAsOtherTypesGetTheDefaults)
{
    defaults.values = {{"host", true}, {"port", false}, {"share", true}, {"user", false}};
    create();
    EXPECT_EQ(delegate->hostField.text(), QString());
    EXPECT_EQ(delegate->portField.text(), QStringLiteral("4445"));
    EXPECT_EQ(delegate->shareField.text(), QStringLiteral("NAS"));
    EXPECT_EQ(delegate->userField.text(), QStringLiteral("nas"));
}

TEST_F(AppDelegateSettings, theManualTargetIsOneOfTheFieldsAndNotOfTheStore)
{
    launchManually();
    defaults.values["host"] = "192.0.2.99";
    startManually(QStringLiteral("192.0.2.8"), QStringLiteral("4446"));
    EXPECT_EQ(targetOf(listenerNamed("Quillbox")), (HostEndpoint{"192.0.2.8", 4446}));
}

} // namespace

} // namespace quillbox
