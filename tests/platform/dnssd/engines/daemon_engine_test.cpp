#include "tests/platform/dnssd/engines/engine_network_test.h"
#include "tests/platform/dnssd/engines/engine_processes.h"

#include <csignal>
#include <ctime>

#include <unistd.h>

namespace quillbox::dnssd {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class DaemonEngine : public EngineNetworkTest {
protected:
    void SetUp() override
    {
        EngineNetworkTest::SetUp();
        skipWithoutDaemon();
    }
    void TearDown() override
    {
        if (engine)
            engine->stop();
    }

    void startEverything()
    {
        bus = std::make_unique<TestBus>();
        ASSERT_TRUE(bus->isReady());
        daemon = std::make_unique<TestDaemon>();
        engine->start(events.handler());
        ASSERT_TRUE(events.waitFor<EngineUp>());
    }

    /// Registers at each EngineUp, as the layer above does.
    Engine::EventHandler reregistering()
    {
        return [this, record = events.handler()](const Event& event) {
            record(event);
            if (std::holds_alternative<EngineUp>(event))
                engine->send(registration(1, "Quillbox", "quillbox-1.local"));
        };
    }

    std::unique_ptr<TestBus> bus;
    std::unique_ptr<TestDaemon> daemon;
    EventRecorder events;
    std::unique_ptr<EngineOnPool> engine = makeDaemonEngine();
};

TEST_F(DaemonEngine, isDownWithoutABus)
{
    engine->start(events.handler());
    EXPECT_TRUE(events.waitFor<EngineDown>(2s));
    engine->send(BrowseRequest{1, "_smb._tcp"});
    engine->stop();
    EXPECT_EQ(events.all().size(), 1U);
}

TEST_F(DaemonEngine, isDownOnABusWithoutTheDaemonAndUpWhenItComes)
{
    bus = std::make_unique<TestBus>();
    ASSERT_TRUE(bus->isReady());
    engine->start(events.handler());
    EXPECT_TRUE(events.waitFor<EngineDown>(2s));
    daemon = std::make_unique<TestDaemon>();
    EXPECT_TRUE(events.waitForEvent(EngineUp{"testhost.local"}));
}

TEST_F(DaemonEngine, advertisesAgainWithinThreeSecondsOfTheDaemonsReturn)
{
    bus = std::make_unique<TestBus>();
    daemon = std::make_unique<TestDaemon>();
    engine->start(reregistering());
    ASSERT_TRUE(events.waitForEvent(Registered{1}));

    daemon->signal(SIGKILL);
    ASSERT_TRUE(events.waitFor<EngineDown>());
    events.clear();
    daemon.reset();
    daemon = std::make_unique<TestDaemon>();
    const auto since = Clock::now();
    EXPECT_TRUE(events.waitForEvent(Registered{1}));
    EXPECT_LE(Clock::now() - since, 3s);
}

TEST_F(DaemonEngine, advertisesAgainWithinThreeSecondsOfTheBusesReturn)
{
    bus = std::make_unique<TestBus>();
    daemon = std::make_unique<TestDaemon>();
    engine->start(reregistering());
    ASSERT_TRUE(events.waitForEvent(Registered{1}));

    bus.reset();
    ASSERT_TRUE(events.waitFor<EngineDown>());
    daemon.reset();
    events.clear();
    // Long enough for an exponential backoff to exceed the 3 s that are promised.
    EXPECT_FALSE(events.waitFor<EngineUp>(4s));
    bus = std::make_unique<TestBus>();
    ASSERT_TRUE(bus->isReady());
    daemon = std::make_unique<TestDaemon>();
    const auto since = Clock::now();
    EXPECT_TRUE(events.waitForEvent(Registered{1}));
    EXPECT_LE(Clock::now() - since, 3s);
}

TEST_F(DaemonEngine, survivesTheFolderOfTheBusSocketBeingMadeAnew)
{
    ASSERT_TRUE(runs({"rm", "-rf", "/run/dbus"}));
    engine->start(events.handler());
    ASSERT_TRUE(events.waitFor<EngineDown>());
    EXPECT_FALSE(events.waitFor<EngineUp>(4s));
    bus = std::make_unique<TestBus>();
    daemon = std::make_unique<TestDaemon>();
    const auto since = Clock::now();
    EXPECT_TRUE(events.waitFor<EngineUp>());
    EXPECT_LE(Clock::now() - since, 2s);
}

TEST_F(DaemonEngine, stopsInTimeWhenTheDaemonHangs)
{
    startEverything();
    engine->send(registration(1, "Quillbox", "quillbox-1.local"));
    ASSERT_TRUE(events.waitForEvent(Registered{1}));
    daemon->signal(SIGSTOP);
    engine->send(BrowseRequest{2, "_smb._tcp"}); // blocks the engine's process
    const auto since = Clock::now();
    engine->stop();
    EXPECT_LE(Clock::now() - since, 600ms);
    daemon->signal(SIGKILL);
}

TEST_F(DaemonEngine, sleepsWhileNothingHappens)
{
    startEverything();
    engine->send(BrowseRequest{1, "_quillbox._tcp"});
    ASSERT_TRUE(events.waitForEvent(Settled{1}));
    events.clear();
    const auto child = engineProcessOf(::getpid());
    ASSERT_TRUE(child);
    clockid_t clockOfChild{};
    ASSERT_EQ(::clock_getcpuclockid(*child, &clockOfChild), 0);
    const auto used = [](clockid_t clock) {
        timespec time{};
        ::clock_gettime(clock, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    const auto before = used(CLOCK_PROCESS_CPUTIME_ID) + used(clockOfChild);
    EXPECT_FALSE(events.waitFor<EngineDown>(2s));
    EXPECT_LE(used(CLOCK_PROCESS_CPUTIME_ID) + used(clockOfChild) - before, 20ms);
}

TEST_F(DaemonEngine, withdrawsManyServicesWhenItStops)
{
    startEverything();
    TestZeroconf browser(*network, {"watch", "_smb._tcp"});
    ASSERT_TRUE(browser.waitForLine("watching"));
    for (RequestId id = 1; id <= 40; ++id) {
        engine->send(registration(id, "Quillbox " + std::to_string(id),
                                  "quillbox-" + std::to_string(id) + ".local"));
    }
    ASSERT_TRUE(events.waitForEvent(Registered{40}, 60s));
    ASSERT_TRUE(browser.waitForLine("Quillbox 40._smb._tcp.local.", 60s));
    engine->stop();
    EXPECT_TRUE(browser.waitForLine("lost Quillbox 40._smb._tcp.local.", 20s));
}

} // namespace

} // namespace quillbox::dnssd
