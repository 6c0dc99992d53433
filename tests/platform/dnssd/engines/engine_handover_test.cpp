#include "tests/platform/dnssd/engines/engine_network_test.h"

#include <csignal>

namespace quillbox::dnssd {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// The automatic choice between the real engines.
class EngineHandover : public EngineNetworkTest {
protected:
    void SetUp() override
    {
        EngineNetworkTest::SetUp();
        skipWithoutDaemon();
    }
    void TearDown() override { engine->stop(); }

    void start()
    {
        engine->start([this, record = events.handler()](const Event& event) {
            record(event);
            if (std::holds_alternative<EngineUp>(event))
                engine->send(registration(1, "Quillbox", "quillbox-1.local"));
        });
    }

    bool waitForAdvertisement() { return events.waitForEvent(Registered{1}, 8s); }

    std::unique_ptr<TestBus> bus;
    std::unique_ptr<TestDaemon> daemon;
    EventRecorder events;
    std::unique_ptr<EngineOnPool> engine =
        std::make_unique<EngineOnPool>([](const std::shared_ptr<DispatchQueue>& queue, Log& log) {
            return makeEngine(DnsSdChoice::Automatic, queue, log);
        });
};

TEST_F(EngineHandover, worksWithoutABusAndGoesToTheDaemonAndBack)
{
    TestZeroconf browser(*network, {"watch", "_smb._tcp"});
    ASSERT_TRUE(browser.waitForLine("watching"));
    start();
    ASSERT_TRUE(waitForAdvertisement());
    EXPECT_TRUE(browser.waitForLine("found Quillbox._smb._tcp.local."));

    // A daemon appears: it takes over the advertisement without a name conflict.
    events.clear();
    bus = std::make_unique<TestBus>();
    daemon = std::make_unique<TestDaemon>();
    ASSERT_TRUE(events.waitForEvent(EngineUp{"testhost.local"}));
    ASSERT_TRUE(waitForAdvertisement());
    EXPECT_EQ(events.count<Collision>(), 0U);
    EXPECT_TRUE(browser.waitForLine("found Quillbox._smb._tcp.local."));

    // The daemon dies.
    events.clear();
    daemon->signal(SIGKILL);
    const auto since = Clock::now();
    ASSERT_TRUE(waitForAdvertisement());
    EXPECT_LE(Clock::now() - since, 4s);
    EXPECT_EQ(events.count<Collision>(), 0U);

    engine->stop();
    EXPECT_TRUE(browser.waitForLine("lost Quillbox._smb._tcp.local."));
}

TEST_F(EngineHandover, staysWithADaemonThatRestarts)
{
    bus = std::make_unique<TestBus>();
    daemon = std::make_unique<TestDaemon>();
    {
        EventRecorder probes;
        const auto probe = makeDaemonEngine();
        probe->start(probes.handler());
        ASSERT_TRUE(probes.waitFor<EngineUp>());
        probe->stop();
    }
    testing::internal::CaptureStderr();
    start();
    ASSERT_TRUE(waitForAdvertisement());
    events.clear();
    daemon.reset();
    daemon = std::make_unique<TestDaemon>();
    const auto since = Clock::now();
    ASSERT_TRUE(waitForAdvertisement());
    EXPECT_LE(Clock::now() - since, 3s);
    engine->stop();
    testing::internal::GetCapturedStderr();
}

/// The engine process beside another mDNS responder that publishes the name of this computer.
class EngineBesideAnother : public EngineNetworkTest {
protected:
    void SetUp() override
    {
        EngineNetworkTest::SetUp();
        skipWithoutDaemon();
    }
};

TEST_F(EngineBesideAnother, leavesTheComputersNameAlone)
{
    const TestBus bus;
    const TestDaemon daemon;
    EventRecorder daemonEvents;
    const auto observer = makeDaemonEngine();
    observer->start(daemonEvents.handler());
    ASSERT_TRUE(daemonEvents.waitForEvent(EngineUp{"testhost.local"}));
    daemonEvents.clear();
    EventRecorder eventsThere;
    std::unique_ptr<EngineOnPool> there;
    network->doThere([&] {
        there = makeEmbeddedEngine();
        there->start(eventsThere.handler());
    });
    ASSERT_TRUE(eventsThere.waitFor<EngineUp>());
    there->send(AddressRequest{1, "testhost.local", Family::IPv4});
    const Sighting sighting{network->interfaceThere(), Family::IPv4};
    const Address computer = address(TestNetwork::kAddressHere);
    ASSERT_TRUE(eventsThere.waitForEvent(AddressAnswer{1, Change::Found, sighting, computer}));

    EventRecorder events;
    const auto embedded = makeEmbeddedEngine();
    embedded->start(events.handler());
    ASSERT_TRUE(events.waitFor<EngineUp>());
    embedded->send(registration(1, "Quillbox", "quillbox-1.local"));
    EXPECT_TRUE(events.waitForEvent(Registered{1}));
    there->send(LocationRequest{2, {"Quillbox", "_smb._tcp", "local"}});
    EXPECT_TRUE(eventsThere.waitForEvent(
        LocationAnswer{2, Change::Found, sighting, {"quillbox-1.local", 4445}}));
    embedded->stop();
    EXPECT_TRUE(eventsThere.waitForEvent(
        LocationAnswer{2, Change::Lost, sighting, {"quillbox-1.local", 4445}}));

    EXPECT_FALSE(eventsThere.waitForEvent(AddressAnswer{1, Change::Lost, sighting, computer}, 2s));
    EXPECT_FALSE(daemonEvents.waitFor<EngineDown>(0s));
    there->stop();
    observer->stop();
}

} // namespace

} // namespace quillbox::dnssd
