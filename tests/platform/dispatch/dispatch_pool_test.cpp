#include "platform/dispatch/dispatch_pool.h"
#include "platform/dispatch/strand_queue.h"
#include "platform/dispatch/watch.h"
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
    const DispatchPool pool;
    const auto& urgent = pool.context(QualityOfService::UserInitiated);
    EXPECT_NE(pool.context(QualityOfService::Utility), urgent);
    EXPECT_NE(pool.context(QualityOfService::Unspecified), urgent);
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

TEST(PoolContext, runsNothingMoreOnceItIsStopped)
{
    PoolContext context;
    const auto strand = context.makeStrand();
    const auto other = context.makeStrand();
    bool isStopped = false;
    strand.post([&] {
        isStopped = true;
        context.stop();
    });
    const auto token = std::make_shared<int>(0);
    strand.post([token] { FAIL() << "the next of the strand"; });
    other.post([token] { FAIL() << "that of another strand"; });
    context.runHere();
    EXPECT_TRUE(isStopped);
    EXPECT_EQ(token.use_count(), 3);
    context.destroyPending();
    EXPECT_EQ(token.use_count(), 1);
    strand.post([token] { FAIL() << "what comes later"; });
    context.post(Work([token] { FAIL() << "what comes later on no strand"; }));
    EXPECT_EQ(token.use_count(), 1);
}

TEST(PoolContext, keepsNoMemoryOfStrandsThatAreGone)
{
    PoolContext context;
    const auto useAndDrop = [&context](int times) {
        for (int count = 0; count < times; ++count)
            context.makeStrand();
    };
    useAndDrop(10);
    const auto before = ::mallinfo2().uordblks; // 0 with AddressSanitizer
    useAndDrop(2000);
    EXPECT_LT(::mallinfo2().uordblks, before + 50'000);
}

TEST(PoolContext, handlesNoMoreEventsOnceItIsStopped)
{
    auto context = std::make_shared<PoolContext>();
    std::vector<std::unique_ptr<Watch>> watches;
    int handled = 0;
    for (int count = 0; count < 2; ++count) {
        std::error_code error;
        // Readable from the start.
        watches.push_back(Watch::adopt(context, ::eventfd(1, 0), Watch::For::Reading, error));
        ASSERT_FALSE(error) << error.message();
        watches.back()->waitReadable(context->makeStrand(), [&](const std::error_code&) {
            ++handled;
            context->stop();
        });
    }
    context->runHere();
    EXPECT_EQ(handled, 1);
    context->destroyPending();
}

TEST(Strand, dispatchesInsideTheCallOnlyWhileNothingIsPending)
{
    DispatchPool pool;
    const auto loop = pool.context(QualityOfService::Utility);
    const auto strand = loop->makeStrand();
    std::vector<std::string> events;
    std::promise<void> done;
    // Runs on the thread of the loop, but on no strand.
    loop->post(Work([&] {
        strand.dispatch([&] { events.emplace_back(strand.isCurrent() ? "inside" : "outside"); });
        strand.post([&] { events.emplace_back("posted"); });
        strand.dispatch([&] {
            events.emplace_back("dispatched");
            done.set_value();
        });
        events.emplace_back("end of the call");
    }));
    ASSERT_EQ(done.get_future().wait_for(kPatience), std::future_status::ready);
    pool.shutdown();
    EXPECT_EQ(events,
              (std::vector<std::string>{"inside", "end of the call", "posted", "dispatched"}));
}

TEST(Strand, dispatchesInsideTheCallOnItself)
{
    DispatchPool pool;
    const auto strand = pool.context(QualityOfService::Utility)->makeStrand();
    std::vector<std::string> events;
    std::promise<void> done;
    strand.post([&] {
        strand.dispatch([&] { events.emplace_back("inside"); });
        events.emplace_back("end of the call");
        strand.post([&] { done.set_value(); });
    });
    done.get_future().wait();
    EXPECT_EQ(events, (std::vector<std::string>{"inside", "end of the call"}));
}

TEST(Strand, dispatchesOnItsThreadOnly)
{
    DispatchPool pool;
    const auto strand = pool.context(QualityOfService::Utility)->makeStrand();
    std::promise<std::thread::id> thread;
    strand.dispatch([&] { thread.set_value(std::this_thread::get_id()); });
    EXPECT_NE(thread.get_future().get(), std::this_thread::get_id());
}

TEST(Strand, dispatchesNothingInTheMiddleOfAnotherStrand)
{
    DispatchPool pool;
    const auto loop = pool.context(QualityOfService::Utility);
    const auto one = loop->makeStrand();
    const auto other = loop->makeStrand();
    std::vector<std::string> events;
    std::promise<void> done;
    one.post([&] {
        other.dispatch([&] {
            events.emplace_back("other");
            done.set_value();
        });
        events.emplace_back("end of the call");
    });
    done.get_future().wait();
    pool.shutdown();
    EXPECT_EQ(events, (std::vector<std::string>{"end of the call", "other"}));
}

TEST(StrandOf, isTheStrandThatTheQueueRunsOn)
{
    DispatchPool pool;
    const auto queue = pool.makeQueue("queue", QualityOfService::Utility);
    std::promise<bool> isSame;
    queue->async([&] { isSame.set_value(strandOf(*queue).isCurrent()); });
    EXPECT_TRUE(isSame.get_future().get());
}

} // namespace quillbox
