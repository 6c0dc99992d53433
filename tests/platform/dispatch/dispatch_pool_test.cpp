#include "platform/dispatch/dispatch_pool.h"
#include "platform/dispatch/event_loop.h"
#include "platform/dispatch/fd_watcher.h"
#include "platform/dispatch/loop_queue.h"
#include "tests/platform/dispatch/patience.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/eventfd.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

std::chrono::nanoseconds processorTime()
{
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

} // namespace

TEST(DispatchPool, lightWorkDoesNotHoldUpWhatTheUserWaitsFor)
{
    DispatchPool pool;
    const auto first = pool.makeQueue("first", QualityOfService::Utility);
    const auto second = pool.makeQueue("second", QualityOfService::UserInitiated);
    std::promise<void> secondRan;
    std::promise<bool> firstSawIt;
    auto ran = secondRan.get_future();
    first->async(
        [&] { firstSawIt.set_value(ran.wait_for(kPatience) == std::future_status::ready); });
    second->async([&] { secondRan.set_value(); });
    EXPECT_TRUE(firstSawIt.get_future().get());
}

TEST(DispatchPool, keepsTheOrderOfEachOfManyThreads)
{
    DispatchPool pool;
    const auto queue = pool.makeQueue("queue", QualityOfService::Utility);
    constexpr int kThreads = 4;
    constexpr int kEach = 2000;
    std::vector<std::vector<int>> seen(kThreads);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back([&, thread] {
            for (int number = 0; number < kEach; ++number)
                queue->async([&, thread, number] {
                    seen[static_cast<std::size_t>(thread)].push_back(number);
                });
        });
    for (auto& thread : threads)
        thread.join();
    std::promise<void> done;
    queue->async([&done] { done.set_value(); });
    ASSERT_EQ(done.get_future().wait_for(kPatience), std::future_status::ready);
    for (const auto& numbers : seen) {
        ASSERT_EQ(numbers.size(), static_cast<std::size_t>(kEach));
        EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    }
}

namespace {

/// Submits itself again each time it runs, until `*isOver` is set.
void goOnAndOn(const std::shared_ptr<DispatchQueue>& queue, const std::shared_ptr<bool>& isOver)
{
    queue->async([queue, isOver] {
        if (!*isOver)
            goOnAndOn(queue, isOver);
    });
}

} // namespace

TEST(DispatchPool, aQueueThatIsNeverDoneLeavesTimeToTheOthersOfItsThread)
{
    DispatchPool pool;
    const auto busy = pool.makeQueue("busy", QualityOfService::Utility);
    const auto other = pool.makeQueue("other", QualityOfService::Utility);
    const auto isOver = std::make_shared<bool>(false);
    goOnAndOn(busy, isOver);
    std::promise<void> ran;
    std::promise<void> delayed;
    other->async([&ran] { ran.set_value(); });
    other->asyncAfter(1ms, [&delayed] { delayed.set_value(); });
    EXPECT_EQ(ran.get_future().wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(delayed.get_future().wait_for(kPatience), std::future_status::ready);
    other->async([isOver] { *isOver = true; }); // runs on the thread of `busy`
}

TEST(DispatchPool, waitsAtShutdownForTheClosureThatRuns)
{
    DispatchPool pool;
    const auto queue = pool.makeQueue("queue", QualityOfService::Utility);
    std::promise<void> begun;
    std::atomic<bool> ended = false;
    queue->async([&] {
        begun.set_value();
        std::promise<void> never;
        never.get_future().wait_for(50ms);
        ended = true;
    });
    begun.get_future().wait();
    pool.shutdown();
    EXPECT_TRUE(ended);
}

TEST(DispatchPool, dropsWorkThatComesAfterTheShutdown)
{
    DispatchPool pool;
    const auto queue = pool.makeQueue("queue", QualityOfService::Utility);
    pool.shutdown();
    pool.shutdown();
    const auto token = std::make_shared<int>(0);
    queue->async([token] { FAIL(); });
    queue->asyncAfter(0ms, [token] { FAIL(); });
    const auto later = pool.makeQueue("later", QualityOfService::Utility);
    later->async([token] { FAIL(); });
    EXPECT_EQ(token.use_count(), 1);
}

TEST(DispatchPool, keepsPendingWorkOfOneThreadWhileTheOtherThreadRuns)
{
    DispatchPool pool;
    const auto urgent = pool.makeQueue("urgent", QualityOfService::UserInitiated);
    const auto other = pool.makeQueue("other", QualityOfService::Utility);
    auto owned = std::make_shared<int>(0);
    const std::weak_ptr<int> used = owned;
    urgent->asyncAfter(24h, [owned = std::move(owned)] { FAIL(); });
    std::promise<void> begun;
    bool isThere = false;
    other->async([&] {
        begun.set_value();
        std::promise<void> never;
        never.get_future().wait_for(50ms);
        isThere = !used.expired();
    });
    begun.get_future().wait();
    pool.shutdown();
    EXPECT_TRUE(isThere);
    EXPECT_TRUE(used.expired());
}

TEST(DispatchPool, letsAQueueOutliveIt)
{
    std::shared_ptr<DispatchQueue> queue;
    {
        DispatchPool pool;
        queue = pool.makeQueue("queue", QualityOfService::Utility);
    }
    queue->async([] { FAIL(); });
    EXPECT_FALSE(queue->isCurrent());
}

TEST(DispatchPool, dropsClosuresWhoseDestructionHandsOverMore)
{
    DispatchPool pool;
    const auto queue = pool.makeQueue("queue", QualityOfService::Utility);
    bool isDestroyed = false;
    const auto handOver = [&isDestroyed, queue](int*) {
        isDestroyed = true;
        queue->async([queue] { FAIL(); });
    };
    queue->asyncAfter(24h, [token = std::shared_ptr<int>(nullptr, handOver)] {});
    pool.shutdown();
    EXPECT_TRUE(isDestroyed);
}

TEST(DispatchPool, handsDelayedWorkOverThoughItsTimePassedDuringAnotherClosure)
{
    DispatchPool pool;
    const auto queue = pool.makeQueue("queue", QualityOfService::Utility);
    std::promise<void> ran;
    queue->async([&] {
        queue->asyncAfter(0ms, [&ran] { ran.set_value(); });
        std::promise<void> never;
        never.get_future().wait_for(10ms);
    });
    EXPECT_EQ(ran.get_future().wait_for(kPatience), std::future_status::ready);
}

TEST(DispatchPool, handsDelayedWorkOverWhenTheDelayHasPassedAndNotBefore)
{
    DispatchPool pool;
    const auto queue = pool.makeQueue("queue", QualityOfService::Utility);
    // The loop looks at its timers all the time.
    const auto isOver = std::make_shared<bool>(false);
    goOnAndOn(pool.makeQueue("busy", QualityOfService::Utility), isOver);
    std::promise<std::chrono::steady_clock::time_point> ran;
    const auto before = std::chrono::steady_clock::now();
    queue->asyncAfter(50ms, [&ran, isOver] {
        ran.set_value(std::chrono::steady_clock::now());
        *isOver = true; // runs on the thread of `busy`
    });
    EXPECT_GE(ran.get_future().get() - before, 50ms);
}

TEST(DispatchPool, waitsForTheLongestDelayAndNotForANegativeOne)
{
    DispatchPool pool;
    const auto queue = pool.makeQueue("queue", QualityOfService::Utility);
    std::promise<void> ran;
    queue->asyncAfter(std::chrono::milliseconds::max(), [] { FAIL(); });
    queue->asyncAfter(std::chrono::milliseconds::min(),
                      [&] { queue->asyncAfter(20ms, [&] { ran.set_value(); }); });
    EXPECT_EQ(ran.get_future().wait_for(kPatience), std::future_status::ready);
}

TEST(DispatchPool, keepsAThreadForWhatTheUserWaitsFor)
{
    DispatchPool pool;
    const auto loopOf = [&pool](QualityOfService qos) {
        return &LoopQueue::from(pool.makeQueue("queue", qos))->loop();
    };
    auto* const urgent = loopOf(QualityOfService::UserInitiated);
    EXPECT_NE(loopOf(QualityOfService::Utility), urgent);
    EXPECT_NE(loopOf(QualityOfService::Unspecified), urgent);
}

TEST(DispatchPool, costsNothingWhileThereIsNothingToDo)
{
    DispatchPool pool;
    const auto queue = pool.makeQueue("queue", QualityOfService::Utility);
    std::promise<void> done;
    queue->asyncAfter(1ms, [&done] { done.set_value(); });
    done.get_future().wait();
    const auto before = processorTime();
    std::promise<void> never;
    EXPECT_EQ(never.get_future().wait_for(300ms), std::future_status::timeout);
    EXPECT_LT(processorTime() - before, 30ms);
}

TEST(EventLoop, runsNothingMoreOnceItIsStopped)
{
    const auto loop = std::make_shared<EventLoop>();
    LoopQueue queue(loop, "queue", QualityOfService::Utility);
    LoopQueue other(loop, "other", QualityOfService::Utility);
    bool isStopped = false;
    queue.post([&] {
        isStopped = true;
        loop->stop();
    });
    const auto token = std::make_shared<int>(0);
    queue.post([token] { FAIL() << "the next of the queue"; });
    other.post([token] { FAIL() << "that of another queue"; });
    loop->run();
    EXPECT_TRUE(isStopped);
    EXPECT_EQ(token.use_count(), 3);
    loop->destroyPending();
    EXPECT_EQ(token.use_count(), 1);
    queue.post([token] { FAIL() << "what comes later"; });
    EXPECT_EQ(token.use_count(), 1);
}

TEST(EventLoop, handlesNoMoreEventsOnceItIsStopped)
{
    const auto loop = std::make_shared<EventLoop>();
    std::vector<std::unique_ptr<FdWatcher>> watchers;
    int handled = 0;
    for (int count = 0; count < 2; ++count) {
        std::error_code error;
        // Readable from the start.
        watchers.push_back(
            FdWatcher::adopt(std::make_shared<LoopQueue>(loop, "queue", QualityOfService::Utility),
                             ::eventfd(1, 0), FdWatcher::For::Reading, error));
        ASSERT_FALSE(error) << error.message();
        watchers.back()->waitReadable([&](const std::error_code&) {
            ++handled;
            loop->stop();
        });
    }
    loop->run();
    EXPECT_EQ(handled, 1);
    loop->destroyPending();
}

TEST(EventLoop, handlesAnEventOnItsQueue)
{
    const auto loop = std::make_shared<EventLoop>();
    const auto queue = std::make_shared<LoopQueue>(loop, "queue", QualityOfService::Utility);
    const LoopQueue other(loop, "other", QualityOfService::Utility);
    std::error_code error;
    const auto watcher = FdWatcher::adopt(queue, ::eventfd(1, 0), FdWatcher::For::Reading, error);
    ASSERT_FALSE(error) << error.message();
    bool isOnQueue = false;
    bool isOnOther = true;
    watcher->waitReadable([&](const std::error_code&) {
        isOnQueue = queue->isCurrent();
        isOnOther = other.isCurrent();
        loop->stop();
    });
    loop->run();
    EXPECT_TRUE(isOnQueue);
    EXPECT_FALSE(isOnOther);
}

TEST(EventLoop, handlesNoEventOfAWatcherThatIsGone)
{
    const auto loop = std::make_shared<EventLoop>();
    const auto queue = std::make_shared<LoopQueue>(loop, "queue", QualityOfService::Utility);
    std::vector<std::unique_ptr<FdWatcher>> watchers;
    std::vector<std::error_code> told;
    for (int count = 0; count < 2; ++count) {
        std::error_code error;
        watchers.push_back(
            FdWatcher::adopt(queue, ::eventfd(1, 0), FdWatcher::For::Reading, error));
        ASSERT_FALSE(error) << error.message();
        watchers.back()->waitReadable([&](const std::error_code& result) {
            told.push_back(result);
            watchers.clear();
            queue->post([&loop] { loop->stop(); });
        });
    }
    loop->run();
    EXPECT_EQ(told, (std::vector{std::error_code(),
                                 std::make_error_code(std::errc::operation_canceled)}));
}

} // namespace quillbox
