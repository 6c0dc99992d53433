#include "tests/app/app_fixture.h"

#include <string>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AppDelegateOpenInFinder : public AppFixture {
protected:
    void launchWithPhones(const std::vector<Endpoint>& phones)
    {
        launch();
        findPhones(phones);
        prepare();
    }

    /// Discards the status and the writes so far.
    void prepare()
    {
        markStatus();
        defaults.writes.clear();
    }

    void expectRefusal(bool isReady, const std::string& text, int beeps)
    {
        delegate->openInFinder();
        EXPECT_EQ(statusText(), text);
        EXPECT_EQ(isStatusReady(), isReady);
        EXPECT_EQ(workspace.beeps, beeps);
        EXPECT_THAT(workspace.opened, IsEmpty());
        EXPECT_THAT(defaults.writes, IsEmpty());
    }
};

TEST_F(AppDelegateOpenInFinder, opensTheShareOfTheOnePhone)
{
    launchWithPhones({phoneNamed("Quillbox Office")});
    delegate->openInFinder();
    EXPECT_THAT(workspace.opened, ElementsAre("smb://nas@Quillbox%20Office._smb._tcp.local/NAS"));
    EXPECT_TRUE(isStatusMarked()) << "success sets no status";
    EXPECT_EQ(workspace.beeps, 0);
}

TEST_F(AppDelegateOpenInFinder, keepsTheNameOfThePhoneAsItWasAnnounced)
{
    launchWithPhones({phoneNamed("Quillbox Tom & Ju\u0308rgen's", "example.org")});
    delegate->openInFinder();
    EXPECT_THAT(workspace.opened, ElementsAre("smb://nas@Quillbox%20Tom%20&%20Ju%CC%88rgen's"
                                              "._smb._tcp.local/NAS"));
}

TEST_F(AppDelegateOpenInFinder, opensAShareWithoutTheBlanksAroundIt)
{
    launchWithPhones({phoneNamed("Quillbox")});
    delegate->shareField.setText(QStringLiteral(" \u00a0 My Files \u2003"));
    delegate->openInFinder();
    EXPECT_THAT(workspace.opened, ElementsAre("smb://nas@Quillbox._smb._tcp.local/My%20Files"));
    EXPECT_EQ(storedText("share"), " \u00a0 My Files \u2003") << "stored as typed";
}

TEST_F(AppDelegateOpenInFinder, refusesAShareOfBlanksWithABeep)
{
    launchWithPhones({phoneNamed("Quillbox")});
    delegate->shareField.setText(QStringLiteral(" \u00a0\u2028 "));
    expectRefusal(false, "Enter a share name under Advanced", 1);
    delegate->shareField.clear();
    expectRefusal(false, "Enter a share name under Advanced", 2);
}

TEST_F(AppDelegateOpenInFinder, leavesAUserOfBlanksOut)
{
    launchWithPhones({phoneNamed("Quillbox")});
    delegate->userField.setText(QStringLiteral(" \t "));
    delegate->openInFinder();
    EXPECT_THAT(workspace.opened, ElementsAre("smb://Quillbox._smb._tcp.local/NAS"));
}

TEST_F(AppDelegateOpenInFinder, opensAUserWithoutTheBlanksAroundIt)
{
    launchWithPhones({phoneNamed("Quillbox")});
    delegate->userField.setText(QStringLiteral("  me:you@home "));
    delegate->openInFinder();
    EXPECT_THAT(workspace.opened,
                ElementsAre("smb://me%3Ayou%40home@Quillbox._smb._tcp.local/NAS"));
    EXPECT_EQ(storedText("user"), "  me:you@home ") << "stored as typed";
}

TEST_F(AppDelegateOpenInFinder, refusesWithFinderVisibilityOffWithoutABeep)
{
    defaults.values["showInFinder"] = false;
    launchWithPhones({phoneNamed("Quillbox")});
    expectRefusal(false, "Turn on Show Quillbox in Finder first", 0);
}

TEST_F(AppDelegateOpenInFinder, refusesInManualModeTooWithFinderVisibilityOff)
{
    launchManually();
    delegate->showInFinder.click();
    prepare();
    expectRefusal(false, "Turn on Show Quillbox in Finder first", 0);
}

TEST_F(AppDelegateOpenInFinder, refusesWithoutAPhoneWithABeep)
{
    launchWithPhones({});
    expectRefusal(false, "No Quillbox device is available yet", 1);
}

TEST_F(AppDelegateOpenInFinder, refusesAgainOnceTheOnlyPhoneHasLeft)
{
    launchWithPhones({phoneNamed("Quillbox")});
    findPhones({});
    prepare();
    expectRefusal(false, "No Quillbox device is available yet", 1);
}

TEST_F(AppDelegateOpenInFinder, refusesTwoPhonesAsReadyWithABeep)
{
    launchWithPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    ASSERT_FALSE(isStatusReady());
    expectRefusal(true, "Choose a Quillbox device directly in Finder", 1);
    EXPECT_EQ(delegate->menuStatusItem->text(), QStringLiteral("Finder: visible"));
}

TEST_F(AppDelegateOpenInFinder, countsTwoPhonesOfOneNameAsTwo)
{
    launchWithPhones({phoneNamed("Quillbox"), phoneNamed("Quillbox", "example.org")});
    expectRefusal(true, "Choose a Quillbox device directly in Finder", 1);
}

TEST_F(AppDelegateOpenInFinder, reportsAMissingShareBeforeAnythingElse)
{
    defaults.values["showInFinder"] = false;
    launchWithPhones({});
    delegate->shareField.clear();
    expectRefusal(false, "Enter a share name under Advanced", 1);
}

TEST_F(AppDelegateOpenInFinder, reportsFinderVisibilityBeforeThePhones)
{
    defaults.values["showInFinder"] = false;
    launchWithPhones({});
    expectRefusal(false, "Turn on Show Quillbox in Finder first", 0);
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    prepare();
    expectRefusal(false, "Turn on Show Quillbox in Finder first", 0);
}

TEST_F(AppDelegateOpenInFinder, refusesANameThatNoUrlCanHoldWithoutABeep)
{
    // Programs that open the URL would take a NUL as its end.
    launchWithPhones({phoneNamed(std::string("Quillbox \0", 10))});
    ASSERT_EQ(delegate->discoveredDevices.size(), 1U);
    expectRefusal(false, "Check the connection fields", 0);
}

TEST_F(AppDelegateOpenInFinder, opensTheManualRelayWhateverTheHostFieldSays)
{
    launchManually();
    findPhones({phoneNamed("Quillbox A"), phoneNamed("Quillbox B")});
    for (const char* host : {"192.0.2.7", "", "smb://nas@elsewhere/x"}) {
        workspace.opened.clear();
        delegate->hostField.setText(QString::fromLatin1(host));
        delegate->openInFinder();
        EXPECT_THAT(workspace.opened, ElementsAre("smb://nas@Quillbox._smb._tcp.local/NAS"));
        EXPECT_EQ(storedText("host"), host);
    }
    EXPECT_EQ(workspace.beeps, 0);
}

TEST_F(AppDelegateOpenInFinder, needsNoPhoneInManualMode)
{
    launchManually();
    delegate->openInFinder();
    EXPECT_THAT(workspace.opened, ElementsAre("smb://nas@Quillbox._smb._tcp.local/NAS"));
}

TEST_F(AppDelegateOpenInFinder, savesTheFieldsWithoutJudgingThem)
{
    launchWithPhones({phoneNamed("Quillbox")});
    delegate->hostField.setText(QStringLiteral("  not / a @ host "));
    delegate->portField.setText(QStringLiteral("0"));
    delegate->openInFinder();
    EXPECT_THAT(defaults.writes, ElementsAre("host", "port", "share", "user"));
    EXPECT_EQ(storedText("host"), "not / a @ host");
    EXPECT_EQ(storedText("port"), "0");
    EXPECT_EQ(workspace.opened.size(), 1U);
}

TEST_F(AppDelegateOpenInFinder, savesThePortInItsShortestForm)
{
    launchWithPhones({phoneNamed("Quillbox")});
    delegate->portField.setText(QStringLiteral("+0445"));
    delegate->openInFinder();
    EXPECT_EQ(storedText("port"), "445");
}

TEST_F(AppDelegateOpenInFinder, savesNothingWhenThePortIsNoneAndOpensAllTheSame)
{
    for (const char* port : {"", " 445", "445 ", "65536", "-1", "smb"}) {
        delegate = nullptr;
        workspace.opened.clear();
        launchWithPhones({phoneNamed("Quillbox")});
        delegate->portField.setText(QString::fromLatin1(port));
        delegate->openInFinder();
        EXPECT_THAT(defaults.writes, IsEmpty()) << port;
        EXPECT_THAT(workspace.opened, ElementsAre("smb://nas@Quillbox._smb._tcp.local/NAS"));
        EXPECT_TRUE(isStatusMarked());
    }
}

TEST_F(AppDelegateOpenInFinder, leavesTheRelaysAlone)
{
    launchWithPhones({phoneNamed("Quillbox")});
    const auto running = runningListeners();
    ASSERT_EQ(running.size(), 1U);
    delegate->openInFinder();
    delegate->shareField.clear();
    delegate->openInFinder();
    dispatch.runAll();
    EXPECT_EQ(runningListeners(), running);
}

} // namespace

} // namespace quillbox
