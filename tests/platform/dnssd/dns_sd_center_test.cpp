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
    ThreadQueue() = default;
    ThreadQueue(const ThreadQueue&) = delete;
    ThreadQueue& operator=(const ThreadQueue&) = delete;
    ~ThreadQueue() override = default;

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

    /// Runs submitted work until `end` is called and nothing is pending.
    void run()
    {
        std::unique_lock lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return isEnding || !pending.empty(); });
            if (pending.empty())
                return;
            Work work = std::move(pending.front());
            pending.pop_front();
            lock.unlock();
            work();
            work = nullptr;
            lock.lock();
        }
    }

    void end()
    {
        const std::lock_guard lock(mutex);
        isEnding = true;
        changed.notify_one();
    }

private:
    const std::string name = "thread";
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Work> pending;
    bool isEnding = false;
};

/// An engine that emits events continuously from its own thread until it is stopped.
class RestlessEngine final : public Engine {
public:
    explicit RestlessEngine(std::atomic<int>& sentAfterStop) : lateRequests(sentAfterStop) {}
    RestlessEngine(const RestlessEngine&) = delete;
    RestlessEngine& operator=(const RestlessEngine&) = delete;
    ~RestlessEngine() override { stop(); }

    void start(EventHandler handler) override
    {
        thread = std::thread([this, tell = std::move(handler)] {
            tell(EngineUp{"pc.local", 1});
            for (AskId id = 1; !isStopped; id = id % 8 + 1) {
                tell(ServiceFound{id, {2, Family::IPv4}, "Quillbox", "_smb._tcp", "local"});
                tell(LocationFound{id, {2, Family::IPv4}, "phone.local", 4445});
                tell(ServiceLost{id, {2, Family::IPv4}, "Quillbox", "_smb._tcp", "local"});
                std::this_thread::yield();
            }
        });
    }

    void send(Generation /*generation*/, Request /*request*/) override
    {
        lateRequests += isStopped ? 1 : 0;
    }

    void stop() override
    {
        isStopped = true;
        if (thread.joinable())
            thread.join();
    }

private:
    std::atomic<int>& lateRequests;
    std::atomic<bool> isStopped{false};
    std::thread thread;
};

class DnsSdCenterTest : public CenterTest {};

} // namespace

TEST_F(DnsSdCenterTest, asksEverythingAnewUnderFreshIdsWhenTheEngineComesBack)
{
    const Recorder<DnsSd::BrowseUpdate> browsed;
    const Recorder<DnsSd::ResolveUpdate> resolved;
    const Recorder<DnsSd::RegistrationUpdate> registered;
    const auto browse = dnsSd->browse("_smb._tcp", dispatch.mainQueue(), browsed.handler());
    const auto resolution = dnsSd->resolve({"Quillbox", "_smb._tcp", "local", std::nullopt},
                                           dispatch.mainQueue(), resolved.handler());
    const auto registration =
        dnsSd->registerService({"Mine", "_smb._tcp", std::nullopt, std::nullopt}, 1,
                               dispatch.mainQueue(), registered.handler());
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

TEST_F(DnsSdCenterTest, letsAHandlerEndItsOwnAsk)
{
    std::unique_ptr<DnsSd::Ask> browse;
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

TEST(DnsSdCenter, mayBeUsedAndDroppedFromAnyThread)
{
    const auto queue = std::make_shared<ThreadQueue>();
    std::thread runner([queue] { queue->run(); });
    FakeNetworkMonitor monitor;
    std::atomic<int> sentAfterStop{0};
    std::atomic<int> told{0};
    for (int round = 0; round < 20; ++round) {
        auto dnsSd = makeDnsSd(std::make_unique<RestlessEngine>(sentAfterStop), queue, monitor);
        std::vector<std::thread> users;
        for (int user = 0; user < 2; ++user) {
            users.emplace_back([&] {
                for (int i = 0; i < 50; ++i) {
                    const auto browse = dnsSd->browse("_smb._tcp", queue,
                                                      [&](const DnsSd::BrowseUpdate&) { ++told; });
                    const auto resolution =
                        dnsSd->resolve({"Quillbox", "_smb._tcp", "local", std::nullopt}, queue,
                                       [&](const DnsSd::ResolveUpdate&) { ++told; });
                }
            });
        }
        const auto heard = std::make_shared<std::promise<void>>();
        const auto once = std::make_shared<std::once_flag>();
        const auto last =
            dnsSd->browse("_smb._tcp", queue, [heard, once](const DnsSd::BrowseUpdate&) {
                std::call_once(*once, [&heard] { heard->set_value(); });
            });
        for (std::thread& user : users)
            user.join();
        EXPECT_EQ(heard->get_future().wait_for(20s), std::future_status::ready);
        dnsSd = nullptr;
    }
    queue->end();
    runner.join();
    EXPECT_EQ(sentAfterStop.load(), 0);
}

} // namespace quillbox
