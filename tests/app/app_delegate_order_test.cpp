#include "tests/app/app_fixture.h"

#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Records what the controller does with its environment, in order.
class AppDelegateOrder : public AppFixture {
protected:
    AppDelegateOrder()
    {
        network.log = &log;
        network.dnsSd().observe([this](const std::string& event) { log.push_back(event); });
        applications.log = &log;
        windowPresence.log = &log;
        defaults.log = &log;
        statusHost.watched = [this] {
            log.emplace_back(delegate->window ? "status item, window built" : "status item");
        };
        dispatch.added = [this](const std::string& label) {
            if (label == std::string(kIdentifier) + ".relay")
                log.emplace_back("relay");
        };
    }

    ~AppDelegateOrder() override { delegate = nullptr; } // while there is a log

    /// Launches in manual mode with a valid target, without running any queue.
    void launchAndWait()
    {
        defaults.values = {{"host", "192.0.2.7"}, {"port", "4445"}, {"automaticDiscovery", false}};
        create();
        log.clear();
        delegate->applicationDidFinishLaunching();
    }

    std::vector<std::string> log;
};

TEST_F(AppDelegateOrder, startsUpInAFixedOrder)
{
    launchAndWait();
    EXPECT_THAT(log,
                ElementsAre("applications.others", "status item, window built",
                            "browse.start _quillbox._tcp", "browse.start _quillbox-admin._tcp",
                            "window.bringForward", "read showInFinder", "read automaticDiscovery",
                            "write host", "write port", "write share", "write user", "relay",
                            "ownQuery.start Quillbox._smb._tcp", "applications.serve"));
}

TEST_F(AppDelegateOrder, endsASecondCopyAfterTheQueryForTheFirst)
{
    applications.add({.date = FakeRunningApplications::kOwnLaunchDate - std::chrono::nanoseconds(1),
                      .processIdentifier = 400});
    launchAndWait();
    EXPECT_THAT(log, ElementsAre("applications.others"));
    EXPECT_EQ(terminations, 1);
}

TEST_F(AppDelegateOrder, listensForPhonesBeforeItLooksForThem)
{
    std::vector<std::string> unheard;
    network.dnsSd().observe([&](const std::string& event) {
        if (!event.starts_with("browse.start"))
            return;
        const auto& discovery =
            event.ends_with(kFileServiceType) ? delegate->discovery : delegate->managementDiscovery;
        if (!discovery->resultChanged)
            unheard.push_back(event);
    });
    launchAndWait();
    EXPECT_EQ(network.dnsSd().browses().size(), 2U);
    EXPECT_THAT(unheard, IsEmpty());
}

TEST_F(AppDelegateOrder, browsesForPhonesAndTheirManagementOnTwoQueues)
{
    launchAndWait();
    EXPECT_NE(phoneBrowse().queue, managementBrowse().queue);
    EXPECT_EQ(phoneBrowse().queue->label(), managementBrowse().queue->label());
}

TEST_F(AppDelegateOrder, listensToARelayBeforeItStartsIt)
{
    int starts = 0;
    dispatch.added = [&](const std::string& label) {
        if (label != std::string(kIdentifier) + ".relay")
            return;
        ++starts;
        for (const auto& [name, relay] : delegate->relays)
            EXPECT_TRUE(relay->statusChanged) << name;
        EXPECT_FALSE(delegate->relays.empty());
    };
    launchAndWait();
    EXPECT_EQ(starts, 1) << "the manual relay";
    dispatch.added = nullptr;
    delegate->applicationWillTerminate();
}

TEST_F(AppDelegateOrder, listensToAPhonesRelayBeforeItStartsIt)
{
    launch();
    int starts = 0;
    dispatch.added = [&](const std::string& label) {
        if (label != std::string(kIdentifier) + ".relay" || starts++ > 0)
            return;
        EXPECT_TRUE(delegate->relays.at("Quillbox A")->statusChanged);
    };
    findPhones({phoneNamed("Quillbox A")});
    EXPECT_GE(starts, 1);
    dispatch.added = nullptr;
}

TEST_F(AppDelegateOrder, shutsDownInAFixedOrder)
{
    launchAndWait();
    delegate->resolveManagement(phoneNamed("Quillbox A"));
    dispatch.runAll();
    log.clear();
    delegate->applicationWillTerminate();
    EXPECT_THAT(log,
                ElementsAre("browse.cancel _quillbox._tcp", "browse.cancel _quillbox-admin._tcp",
                            "resolution.cancel " + phoneNamed("Quillbox A").description(),
                            "ownQuery.cancel Quillbox._smb._tcp", "relay"));
    dispatch.runAll();
    EXPECT_THAT(runningListeners(), IsEmpty());
}

TEST_F(AppDelegateOrder, savesTheFieldsBeforeItOpensTheShare)
{
    launchAndWait();
    delegate->shareField.setText(QStringLiteral("Photos"));
    std::optional<std::string> savedWhenOpened;
    workspace.opening = [&] { savedWhenOpened = storedText("share"); };
    delegate->openInFinder();
    EXPECT_EQ(savedWhenOpened, "Photos");
}

} // namespace

} // namespace quillbox
