#include "platform/dnssd/dns_sd_center.h"
#include "tests/platform/dnssd/center_fixture.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using namespace dnssd;

/// A queue run by its own thread, for tests that need real threads.
class ThreadQueue final : public DispatchQueue {
public:
    void async(Work work) override
    {
        const std::lock_guard lock(mutex);
        pending.push_back(std::move(work));
        changed.notify_one();
    }

    /// Drops the work: this queue has no clock.
    void asyncAfter(std::chrono::milliseconds /*delay*/, Work /*work*/) override {}

    bool isCurrent() const override { return false; }
    const std::string& label() const override { return name; }
    QualityOfService qualityOfService() const override { return QualityOfService::Utility; }

    /// Ends the thread and destroys pending work, as a pool does when it is shut down.
    void shutDown()
    {
        async([this] { isEnding = true; });
        thread.join();
        pending.clear();
    }

private:
    void run()
    {
        while (!isEnding) {
            std::unique_lock lock(mutex);
            changed.wait(lock, [this] { return !pending.empty(); });
            Work work = std::move(pending.front());
            pending.pop_front();
            lock.unlock();
            work();
        }
    }

    const std::string name = "thread";
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Work> pending;
    bool isEnding = false; ///< used on the thread only
    std::thread thread{[this] { run(); }};
};

/// An engine that emits events on its queue until it is stopped.
class RestlessEngine final : public Engine {
public:
    RestlessEngine(DispatchQueue& itsQueue, int& sentAfterStop)
        : queue(itsQueue), lateRequests(sentAfterStop)
    {
    }

    void start(EventHandler handler) override
    {
        tell = std::move(handler);
        queue.async([this] {
            tell(EngineUp{"pc.local"});
            goOn();
        });
    }

    void send(const Request& /*request*/) override { lateRequests += isStopped ? 1 : 0; }

    void stop() override { isStopped = true; }

private:
    void goOn()
    {
        id = id % 8 + 1;
        tell(ServiceAnswer{
            id, Change::Found, {2, Family::IPv4}, {"Quillbox", "_smb._tcp", "local"}});
        tell(LocationAnswer{id, Change::Found, {2, Family::IPv4}, {"phone.local", 4445}});
        tell(
            ServiceAnswer{id, Change::Lost, {2, Family::IPv4}, {"Quillbox", "_smb._tcp", "local"}});
        queue.async([this] { goOn(); });
    }

    DispatchQueue& queue;
    int& lateRequests;
    EventHandler tell;
    RequestId id = 0;
    bool isStopped = false;
};

class DnsSdCenterTest : public CenterTest {};

} // namespace

TEST_F(DnsSdCenterTest, asksEverythingAnewUnderFreshIdsWhenTheEngineComesBack)
{
    const Recorder<DnsSd::BrowseUpdate> browsed;
    const Recorder<DnsSd::ResolveUpdate> resolved;
    const Recorder<DnsSd::RegistrationUpdate> registered;
    const auto browse = dnsSd->browse("_smb._tcp", dispatch.mainQueue(), browsed.handler());
    const auto resolution = dnsSd->resolve(ServiceEndpoint{"Quillbox", "_smb._tcp", "local"},
                                           dispatch.mainQueue(), resolved.handler());
    const auto registration = dnsSd->registerService({"Mine", "_smb._tcp"}, 1, dispatch.mainQueue(),
                                                     registered.handler());
    up();
    const auto firstBrowse = engine.only<BrowseRequest>();
    const auto firstLocation = engine.only<LocationRequest>();
    const auto firstRegistration = engine.only<RegisterRequest>();
    ASSERT_NE(firstBrowse.id, 0U);
    ASSERT_NE(firstLocation.id, 0U);
    ASSERT_NE(firstRegistration.id, 0U);
    down();
    up();
    EXPECT_GT(engine.only<BrowseRequest>().id, firstRegistration.id);
    EXPECT_GT(engine.only<LocationRequest>().id, firstRegistration.id);
    EXPECT_GT(engine.only<RegisterRequest>().id, firstRegistration.id);
    EXPECT_EQ(engine.count<StopRequest>(), 0U) << "the engine that came back knows of nothing";
}

TEST_F(DnsSdCenterTest, tellsOnTheQueueThatWasGiven)
{
    bool wasCurrent = false;
    const auto queue = dispatch.makeQueue("handlers", QualityOfService::Utility);
    const auto browse = dnsSd->browse(
        "_smb._tcp", queue, [&](const DnsSd::BrowseUpdate&) { wasCurrent = queue->isCurrent(); });
    up();
    EXPECT_TRUE(wasCurrent);
}

TEST_F(DnsSdCenterTest, stopsTheEngineWhenItGoes)
{
    EXPECT_EQ(monitor.subscriberCount(), 1U);
    dnsSd = nullptr;
    EXPECT_TRUE(engine.isStopped());
    EXPECT_EQ(monitor.subscriberCount(), 0U);
}

TEST_F(DnsSdCenterTest, leavesAsksIdleThatOutliveIt)
{
    const Recorder<DnsSd::BrowseUpdate> browsed;
    auto browse = dnsSd->browse("_smb._tcp", dispatch.mainQueue(), browsed.handler());
    up();
    const std::size_t told = browsed.count();
    const std::size_t asked = engine.requests().size();
    dnsSd = nullptr;
    dispatch.runAll();
    browse = nullptr;
    dispatch.advance(10s);
    EXPECT_EQ(browsed.count(), told);
    EXPECT_EQ(engine.requests().size(), asked) << "nothing is asked of an engine that has ended";
}

TEST_F(DnsSdCenterTest, letsAHandlerEndItsOwnSubscription)
{
    std::unique_ptr<DnsSd::Subscription> browse;
    int calls = 0;
    browse = dnsSd->browse("_smb._tcp", dispatch.mainQueue(), [&](const DnsSd::BrowseUpdate&) {
        ++calls;
        browse = nullptr;
    });
    up();
    down();
    up();
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(engine.standing<BrowseRequest>().empty());
}

TEST(DnsSdCenter, mayBeUsedFromAnyThreadAndIsDroppedAfterItsQueue)
{
    FakeNetworkMonitor monitor;
    RecordingLog log;
    log.isTelling = false;
    int sentAfterStop = 0;
    std::atomic<int> told{0};
    for (int round = 0; round < 20; ++round) {
        const auto queue = std::make_shared<ThreadQueue>();
        auto dnsSd =
            makeDnsSd(std::make_unique<RestlessEngine>(*queue, sentAfterStop), queue, monitor, log);
        std::vector<std::thread> users;
        for (int user = 0; user < 2; ++user) {
            users.emplace_back([&] {
                for (int i = 0; i < 50; ++i) {
                    const auto browse = dnsSd->browse("_smb._tcp", queue,
                                                      [&](const DnsSd::BrowseUpdate&) { ++told; });
                    const auto resolution =
                        dnsSd->resolve(ServiceEndpoint{"Quillbox", "_smb._tcp", "local"}, queue,
                                       [&](const DnsSd::ResolveUpdate&) { ++told; });
                }
            });
        }
        const auto heard = std::make_shared<std::promise<void>>();
        const auto once = std::make_shared<std::once_flag>();
        auto last = dnsSd->browse("_smb._tcp", queue, [heard, once](const DnsSd::BrowseUpdate&) {
            std::call_once(*once, [&heard] { heard->set_value(); });
        });
        for (std::thread& user : users)
            user.join();
        EXPECT_EQ(heard->get_future().wait_for(20s), std::future_status::ready);
        queue->shutDown();
        dnsSd = nullptr;
        last = nullptr;
    }
    EXPECT_EQ(sentAfterStop, 0);
}

} // namespace quillbox
