#include "tests/platform/dnssd/engines/engine_network_test.h"

#include <csignal>

namespace quillbox::dnssd {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// The automatic choice between the real engines.
class EngineHandover : public EngineNetworkTest {
protected:
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
    std::unique_ptr<Engine> engine = makeEngine(DnsSdMode::Automatic);
};

TEST_F(EngineHandover, worksWithoutABusAndGoesToTheDaemonAndBack)
{
    TestZeroconf browser(*network, {"watch", "_smb._tcp"});
    ASSERT_TRUE(browser.waitForLine("watching"));
    testing::internal::CaptureStderr();
    start();
    ASSERT_TRUE(waitForAdvertisement());
    EXPECT_TRUE(browser.waitForLine("found Quillbox._smb._tcp.local."));

    // A daemon appears: one advertisement, made by it.
    events.clear();
    bus = std::make_unique<TestBus>();
    daemon = std::make_unique<TestDaemon>();
    ASSERT_TRUE(events.waitForEvent(EngineUp{"testhost.local"}));
    ASSERT_TRUE(waitForAdvertisement());
    EXPECT_EQ(events.count<Collision>(), 0U);
    EXPECT_TRUE(browser.waitForLine("found Quillbox._smb._tcp.local."));

    // It goes.
    events.clear();
    daemon->signal(SIGKILL);
    const auto since = Clock::now();
    ASSERT_TRUE(waitForAdvertisement());
    EXPECT_LE(Clock::now() - since, 4s);
    EXPECT_EQ(events.count<Collision>(), 0U);

    engine->stop();
    EXPECT_TRUE(browser.waitForLine("lost Quillbox._smb._tcp.local."));
    const std::string notices = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::ranges::count(notices, '\n'), 1) << notices;
    EXPECT_NE(notices.find("avahi-daemon"), std::string::npos);
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

} // namespace

} // namespace quillbox::dnssd
