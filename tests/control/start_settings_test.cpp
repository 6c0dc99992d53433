#include "control/start_settings.h"
#include "tests/fakes/fake_user_defaults.h"

#include <string>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class StartSettingsTest : public ::testing::Test {
protected:
    /// Returns what is said.
    template <class Action> static std::string saidBy(Action action)
    {
        ::testing::internal::CaptureStderr();
        action();
        return ::testing::internal::GetCapturedStderr();
    }

    std::string keepAndTell(const StartOptions& options, bool isKept = true)
    {
        return saidBy([&] { EXPECT_EQ(keep(options, store, "from now on"), isKept); });
    }

    FakeUserDefaults store;
};

TEST_F(StartSettingsTest, haveDefaults)
{
    EXPECT_EQ(startSettings({}, store),
              (StartSettings{.reach = Reach::Network, .dnsSd = DnsSdMode::Automatic}));
}

TEST_F(StartSettingsTest, areThoseOfTheCommandLineAndElseTheStoredOnes)
{
    store.values = {{"thisComputerOnly", true}, {"dnsSd", "daemon"}};
    EXPECT_EQ(startSettings({}, store),
              (StartSettings{.reach = Reach::ThisComputer, .dnsSd = DnsSdMode::Daemon}));
    EXPECT_EQ(startSettings({.reach = Reach::Network}, store),
              (StartSettings{.reach = Reach::Network, .dnsSd = DnsSdMode::Daemon}));
    EXPECT_EQ(startSettings({.dnsSd = DnsSdMode::Automatic}, store),
              (StartSettings{.reach = Reach::ThisComputer, .dnsSd = DnsSdMode::Automatic}));
}

TEST_F(StartSettingsTest, areOfThisComputerOnlyWhereTheStoredOnesCannotBeUsed)
{
    store.unusable = "/settings.json: Permission denied";
    StartSettings settings;
    EXPECT_THAT(saidBy([&] { settings = startSettings({}, store); }),
                AllOf(HasSubstr("\"thisComputerOnly\" therefore counts as true"),
                      HasSubstr("fix or remove the file"), HasSubstr("--this-computer-only=off")));
    EXPECT_EQ(settings.reach, Reach::ThisComputer);
    EXPECT_EQ(settings.dnsSd, DnsSdMode::Automatic);

    EXPECT_EQ(saidBy([&] { settings = startSettings({.reach = Reach::Network}, store); }), "");
    EXPECT_EQ(settings.reach, Reach::Network);
}

TEST_F(StartSettingsTest, thatAreKeptAreReadAgain)
{
    for (const auto reach : {Reach::ThisComputer, Reach::Network}) {
        for (const auto dnsSd : {DnsSdMode::Daemon, DnsSdMode::Embedded, DnsSdMode::Automatic}) {
            keepAndTell({.reach = reach, .dnsSd = dnsSd});
            EXPECT_EQ(startSettings({}, store), (StartSettings{.reach = reach, .dnsSd = dnsSd}))
                << nameOf(dnsSd);
        }
    }
}

TEST_F(StartSettingsTest, thatReplaceOthersAreTold)
{
    store.values = {{"thisComputerOnly", true}, {"dnsSd", "daemon"}};
    EXPECT_EQ(keepAndTell({.reach = Reach::Network, .dnsSd = DnsSdMode::Embedded}),
              "quillbox-helper: the setting \"thisComputerOnly\" is false from now on\n"
              "quillbox-helper: the setting \"dnsSd\" is \"embedded\" from now on\n");
}

TEST_F(StartSettingsTest, thatCannotBeStoredAreNotTold)
{
    store.isWritable = false;
    EXPECT_EQ(keepAndTell({.reach = Reach::ThisComputer, .dnsSd = DnsSdMode::Daemon}, false), "");
}

TEST_F(StartSettingsTest, thatNobodyNamesAreNotWritten)
{
    EXPECT_EQ(keepAndTell({}), "");
    EXPECT_THAT(store.writes, IsEmpty());
}

TEST_F(StartSettingsTest, thatAreStoredAlreadyAreNotTold)
{
    store.values = {{"thisComputerOnly", true}, {"dnsSd", "daemon"}};
    EXPECT_EQ(keepAndTell({.reach = Reach::ThisComputer, .dnsSd = DnsSdMode::Daemon}), "");
}

TEST_F(StartSettingsTest, thatAreTheDefaultsReplaceWhatCannotBeUsed)
{
    store.values = {{"thisComputerOnly", "yes"}, {"dnsSd", "avahi"}};
    const StartOptions defaults{.reach = Reach::Network, .dnsSd = DnsSdMode::Automatic};
    startSettings(defaults, store);
    EXPECT_THAT(store.reads, IsEmpty()) << "a default that was read counts as stored";
    keepAndTell(defaults);
    EXPECT_EQ(store.values,
              (decltype(store.values){{"thisComputerOnly", false}, {"dnsSd", "auto"}}));
}

TEST_F(StartSettingsTest, haveNamesThatAreReadAgain)
{
    for (const auto choice : {DnsSdMode::Automatic, DnsSdMode::Daemon, DnsSdMode::Embedded})
        EXPECT_EQ(valueNamed<DnsSdMode>(nameOf(choice), kDnsSdNames), choice);
    EXPECT_EQ(valueNamed<DnsSdMode>("avahi", kDnsSdNames), std::nullopt);
}

} // namespace

} // namespace quillbox
