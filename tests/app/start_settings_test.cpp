#include "app/start_settings.h"
#include "tests/fakes/fake_user_defaults.h"

#include <string>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::IsEmpty;

class StartSettingsTest : public ::testing::Test {
protected:
    /// Keeps `now` in place of what is stored, and returns what is said about it.
    std::string keepAndTell(const StartSettings& now)
    {
        ::testing::internal::CaptureStderr();
        keep(storedStartSettings(store), now, store);
        return ::testing::internal::GetCapturedStderr();
    }

    FakeUserDefaults store;
};

TEST_F(StartSettingsTest, haveDefaults)
{
    EXPECT_EQ(storedStartSettings(store),
              (StartSettings{.reach = Reach::Network, .dnsSd = DnsSdChoice::Automatic}));
}

TEST_F(StartSettingsTest, areThoseOfTheCommandLineAndElseTheStoredOnes)
{
    store.values = {{"thisComputerOnly", true}, {"dnsSd", "daemon"}};
    const StartSettings stored = storedStartSettings(store);
    EXPECT_EQ(stored, (StartSettings{.reach = Reach::ThisComputer, .dnsSd = DnsSdChoice::Daemon}));
    EXPECT_EQ(chosen(stored, {}), stored);
    EXPECT_EQ(chosen(stored, {.reach = Reach::Network}),
              (StartSettings{.reach = Reach::Network, .dnsSd = DnsSdChoice::Daemon}));
    EXPECT_EQ(chosen(stored, {.dnsSd = DnsSdChoice::Automatic}),
              (StartSettings{.reach = Reach::ThisComputer, .dnsSd = DnsSdChoice::Automatic}));
}

TEST_F(StartSettingsTest, thatAreKeptAreReadAgain)
{
    for (const auto reach : {Reach::ThisComputer, Reach::Network}) {
        for (const auto dnsSd :
             {DnsSdChoice::Daemon, DnsSdChoice::Embedded, DnsSdChoice::Automatic}) {
            const StartSettings settings{.reach = reach, .dnsSd = dnsSd};
            keepAndTell(settings);
            EXPECT_EQ(storedStartSettings(store), settings) << nameOf(dnsSd);
        }
    }
}

TEST_F(StartSettingsTest, thatReplaceOthersAreTold)
{
    store.values = {{"thisComputerOnly", true}, {"dnsSd", "daemon"}};
    EXPECT_EQ(keepAndTell({.reach = Reach::Network, .dnsSd = DnsSdChoice::Embedded}),
              "quillbox-helper: the setting \"thisComputerOnly\" is now false instead of true, for "
              "later starts as well\n"
              "quillbox-helper: the setting \"dnsSd\" is now \"embedded\" instead of \"daemon\", "
              "for later starts as well\n");
}

TEST_F(StartSettingsTest, thatAreStoredAlreadyAreNotWrittenAgain)
{
    store.values = {{"thisComputerOnly", true}, {"dnsSd", "daemon"}};
    EXPECT_EQ(keepAndTell({.reach = Reach::ThisComputer, .dnsSd = DnsSdChoice::Daemon}), "");
    store.values = {};
    EXPECT_EQ(keepAndTell({}), "");
    EXPECT_THAT(store.writes, IsEmpty());
}

TEST_F(StartSettingsTest, haveNamesThatAreReadAgain)
{
    for (const auto choice : {DnsSdChoice::Automatic, DnsSdChoice::Daemon, DnsSdChoice::Embedded})
        EXPECT_EQ(dnsSdChoiceNamed(nameOf(choice)), choice);
    EXPECT_EQ(dnsSdChoiceNamed("avahi"), std::nullopt);
}

} // namespace

} // namespace quillbox
