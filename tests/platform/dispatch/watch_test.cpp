#include "platform/dispatch/dispatch_pool.h"
#include "platform/dispatch/strand_queue.h"
#include "platform/dispatch/timer.h"
#include "platform/dispatch/watch.h"
#include "tests/platform/dispatch/patience.h"

#include <array>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

constexpr auto kMoment = 100ms;

} // namespace

/// A socket pair: one end is watched, the test uses the other end directly.
class WatchTest : public testing::Test {
protected:
    WatchTest()
    {
        std::array<int, 2> ends{};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0);
        peer = ends[1];
        take(ends[0]);
    }

    ~WatchTest() override
    {
        pool.shutdown();
        closePeer();
    }

    void take(int descriptor)
    {
        auto error = std::make_error_code(std::errc::io_error);
        watch = Watch::adopt(context, descriptor, Watch::For::Reading, error);
        EXPECT_FALSE(error);
    }

    void onQueue(const std::function<void()>& work)
    {
        std::promise<void> done;
        queue->async([&] {
            work();
            done.set_value();
        });
        done.get_future().wait();
    }

    std::future<std::error_code> waitReadable()
    {
        auto told = std::make_shared<std::promise<std::error_code>>();
        onQueue([&] {
            watch->waitReadable(strandOf(*queue),
                                [told](const std::error_code& error) { told->set_value(error); });
        });
        return told->get_future();
    }

    std::future<std::error_code> waitWritable()
    {
        auto told = std::make_shared<std::promise<std::error_code>>();
        onQueue([&] {
            watch->waitWritable(strandOf(*queue),
                                [told](const std::error_code& error) { told->set_value(error); });
        });
        return told->get_future();
    }

    std::future<std::error_code> waitForFailure()
    {
        auto told = std::make_shared<std::promise<std::error_code>>();
        onQueue([&] {
            watch->waitForFailure(strandOf(*queue),
                                  [told](const std::error_code& error) { told->set_value(error); });
        });
        return told->get_future();
    }

    static bool isTold(const std::future<std::error_code>& future)
    {
        return future.wait_for(kPatience) == std::future_status::ready;
    }

    static bool isSilent(const std::future<std::error_code>& future)
    {
        return future.wait_for(kMoment) == std::future_status::timeout;
    }

    void send(std::string_view bytes) const
    {
        EXPECT_EQ(::send(peer, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    }

    std::string read() const
    {
        std::array<char, 64> room{};
        const auto count = ::recv(watch->descriptor(), room.data(), room.size(), 0);
        return count > 0 ? std::string(room.data(), static_cast<std::size_t>(count)) : "";
    }

    /// Waits until the event loop has handled the events caused so far.
    void settle()
    {
        onQueue([] {});
    }

    /// Replaces both ends by those of a TCP connection, which urgent data needs.
    void connectByTcp()
    {
        onQueue([this] { watch.reset(); });
        closePeer();
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
        peer = ::socket(AF_INET, SOCK_STREAM, 0);
        EXPECT_EQ(::bind(listener, generic, size), 0);
        EXPECT_EQ(::listen(listener, 1), 0);
        EXPECT_EQ(::getsockname(listener, generic, &size), 0);
        EXPECT_EQ(::connect(peer, generic, size), 0);
        take(::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK));
        ::close(listener);
    }

    void closePeer()
    {
        if (const int descriptor = std::exchange(peer, -1); descriptor >= 0)
            ::close(descriptor);
    }

    DispatchPool pool;
    const std::shared_ptr<PoolContext> context = pool.context(QualityOfService::UserInitiated);
    const std::shared_ptr<DispatchQueue> queue =
        pool.makeQueue("watch", QualityOfService::UserInitiated);
    std::unique_ptr<Watch> watch;
    int peer = -1;
};

TEST_F(WatchTest, tellsWhatComesDuringTheWait)
{
    const auto told = waitReadable();
    EXPECT_TRUE(isSilent(told));
    send("a");
    EXPECT_TRUE(isTold(told));
    EXPECT_EQ(read(), "a");
    EXPECT_TRUE(isSilent(waitReadable()));
}

TEST_F(WatchTest, tellsWhatCameWhileNobodyWaitedOnce)
{
    send("a");
    settle();
    auto first = waitReadable();
    ASSERT_TRUE(isTold(first));
    EXPECT_EQ(first.get(), std::error_code());
    EXPECT_EQ(read(), "a");
    EXPECT_TRUE(isSilent(waitReadable()));
}

TEST_F(WatchTest, tellsWhatCameAfterAWaitHadEnded)
{
    const auto first = waitReadable();
    send("a");
    ASSERT_TRUE(isTold(first));
    EXPECT_EQ(read(), "a");
    send("b");
    settle();
    ASSERT_TRUE(isTold(waitReadable()));
    EXPECT_EQ(read(), "b");
}

TEST_F(WatchTest, tellsWhatComesBehindUrgentDataAfterAReadThatStoppedThere)
{
    connectByTcp();
    send("a");
    EXPECT_EQ(::send(peer, "!", 1, MSG_OOB), 1);
    send("b");
    settle();
    ASSERT_TRUE(isTold(waitReadable()));
    EXPECT_EQ(read(), "a");
    ASSERT_TRUE(isTold(waitReadable()));
    EXPECT_EQ(read(), "b");
}

TEST_F(WatchTest, tellsTheEndAfterAReadThatLeftRoom)
{
    send("a");
    closePeer();
    settle();
    ASSERT_TRUE(isTold(waitReadable()));
    EXPECT_EQ(read(), "a");
    EXPECT_TRUE(isTold(waitReadable()));
    EXPECT_EQ(read(), "");
}

TEST_F(WatchTest, tellsTheEndOfWhatThePeerSendsAfterAReadThatLeftRoom)
{
    send("a");
    EXPECT_EQ(::shutdown(peer, SHUT_WR), 0);
    settle();
    ASSERT_TRUE(isTold(waitReadable()));
    EXPECT_EQ(read(), "a");
    EXPECT_TRUE(isTold(waitReadable()));
    EXPECT_EQ(read(), "");
}

TEST_F(WatchTest, tellsTheEndThatCameTogetherWithBytesToOneWhoWaited)
{
    const auto first = waitReadable();
    // Both arrive while the loop is busy.
    onQueue([this] {
        send("a");
        closePeer();
    });
    ASSERT_TRUE(isTold(first));
    EXPECT_EQ(read(), "a");
    EXPECT_TRUE(isTold(waitReadable()));
}

TEST_F(WatchTest, tellsRoomToWriteAndNotBefore)
{
    const std::string bytes(4096, 'x');
    while (::send(watch->descriptor(), bytes.data(), bytes.size(), 0) > 0) {
    }
    const auto told = waitWritable();
    EXPECT_TRUE(isSilent(told));
    std::array<char, 4096> room{};
    while (::recv(peer, room.data(), room.size(), 0) > 0) {
    }
    EXPECT_TRUE(isTold(told));
}

TEST_F(WatchTest, tellsBytesAlsoAfterAWaitForRoom)
{
    ASSERT_TRUE(isTold(waitWritable()));
    const auto told = waitReadable();
    send("a");
    EXPECT_TRUE(isTold(told));
}

TEST_F(WatchTest, tellsOneWhoWaitsToWriteThatNobodyReadsAnyMore)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_NONBLOCK), 0);
    onQueue([this] { watch.reset(); });
    closePeer();
    peer = ends[0];
    take(ends[1]);
    const std::string bytes(4096, 'x');
    while (::write(watch->descriptor(), bytes.data(), bytes.size()) > 0) {
    }
    const auto told = waitWritable();
    EXPECT_TRUE(isSilent(told));
    closePeer(); // makes no room in the pipe
    EXPECT_TRUE(isTold(told));
}

TEST_F(WatchTest, tellsOneWhoWaitsToReadThatNobodyWritesAnyMore)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_NONBLOCK), 0);
    onQueue([this] { watch.reset(); });
    closePeer();
    peer = ends[1];
    take(ends[0]);
    const auto told = waitReadable();
    EXPECT_TRUE(isSilent(told));
    closePeer(); // an empty pipe then has EPOLLHUP, but not EPOLLIN
    EXPECT_TRUE(isTold(told));
}

TEST_F(WatchTest, tellsAFailureAndNothingElseToOneWhoWaitsForIt)
{
    const auto told = waitForFailure();
    send("a");
    EXPECT_TRUE(isSilent(told));
    closePeer();
    EXPECT_TRUE(isTold(told));
}

TEST_F(WatchTest, tellsAFailureAlsoWhenItHasComeAlready)
{
    closePeer();
    settle();
    EXPECT_TRUE(isTold(waitForFailure()));
    EXPECT_TRUE(isTold(waitForFailure()));
}

TEST_F(WatchTest, endsWaitsWithAnErrorWhenTheyAreCancelledAndWhenItGoes)
{
    auto first = waitReadable();
    onQueue([this] { watch->cancelWaits(); });
    ASSERT_TRUE(isTold(first));
    EXPECT_EQ(first.get(), std::errc::operation_canceled);
    auto second = waitReadable();
    onQueue([this] { watch.reset(); });
    ASSERT_TRUE(isTold(second));
    EXPECT_EQ(second.get(), std::errc::operation_canceled);
}

TEST_F(WatchTest, endsWaitsForRoomWithAnErrorAndThoseForAFailureUntold)
{
    const std::string bytes(4096, 'x');
    while (::send(watch->descriptor(), bytes.data(), bytes.size(), 0) > 0) {
    }
    auto writing = waitWritable();
    auto failing = waitForFailure();
    onQueue([this] { watch->cancelWaits(); });
    ASSERT_TRUE(isTold(writing));
    EXPECT_EQ(writing.get(), std::errc::operation_canceled);
    closePeer();
    EXPECT_THROW(failing.get(), std::future_error) << "the handler was called";
}

TEST_F(WatchTest, destroysWaitsUntoldWhenThePoolIsShutDown)
{
    auto token = std::make_shared<int>(0);
    onQueue([&] {
        const std::string bytes(4096, 'x');
        while (::send(watch->descriptor(), bytes.data(), bytes.size(), 0) > 0) {
        }
        watch->waitReadable(strandOf(*queue), [token](const std::error_code&) { FAIL(); });
        watch->waitWritable(strandOf(*queue), [token](const std::error_code&) { FAIL(); });
        watch->waitForFailure(strandOf(*queue), [token](const std::error_code&) { FAIL(); });
    });
    EXPECT_EQ(token.use_count(), 4);
    pool.shutdown();
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(WatchTest, destroysWaitsThatBeginAfterTheShutdown)
{
    pool.shutdown();
    const auto token = std::make_shared<int>(0);
    watch->waitReadable(strandOf(*queue), [token](const std::error_code&) { FAIL(); });
    watch->waitWritable(strandOf(*queue), [token](const std::error_code&) { FAIL(); });
    watch->waitForFailure(strandOf(*queue), [token](const std::error_code&) { FAIL(); });
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(WatchTest, leavesTimeToOthersWhileOneMovesAllItCan)
{
    // A closure that submits itself forever and reports 1 MiB moved each time. Reads on another
    // socket are still handled.
    const auto other = pool.makeQueue("flood", QualityOfService::UserInitiated);
    auto isOver = std::make_shared<bool>(false);
    std::function<void()> flood = [&flood, other, isOver, this] {
        context->noteMoved(1UL << 20);
        if (!*isOver)
            other->async(flood);
    };
    other->async(flood);
    for (int count = 0; count < 10; ++count) {
        const auto told = waitReadable();
        send("a");
        ASSERT_TRUE(isTold(told));
        EXPECT_EQ(read(), "a");
    }
    std::promise<void> done;
    other->async([&] {
        *isOver = true;
        other->async([&] { other->async([&] { done.set_value(); }); });
    });
    done.get_future().wait();
}

TEST_F(WatchTest, tellsBetweenTwoClosuresOfWhichTheFirstMovedAllItMay)
{
    const auto other = pool.makeQueue("other", QualityOfService::UserInitiated);
    std::vector<std::string> events;
    onQueue([&] {
        watch->waitReadable(strandOf(*queue),
                            [&](const std::error_code&) { events.emplace_back("told"); });
    });
    std::promise<void> done;
    other->async([&] {
        send("a");
        context->noteMoved(1UL << 20);
        other->async([&] {
            events.emplace_back("second closure");
            done.set_value();
        });
    });
    done.get_future().wait();
    pool.shutdown();
    EXPECT_EQ(events, (std::vector<std::string>{"told", "second closure"}));
}

TEST_F(WatchTest, tellsBehindTheClosuresThatAClosureHandsOver)
{
    const auto other = pool.makeQueue("other", QualityOfService::UserInitiated);
    std::vector<std::string> events;
    std::promise<void> done;
    queue->async([&] {
        watch->waitReadable(strandOf(*queue), [&](const std::error_code&) {
            events.emplace_back("told");
            done.set_value();
        });
        send("a");
        other->async([&] { events.emplace_back("second closure"); });
    });
    done.get_future().wait();
    pool.shutdown();
    EXPECT_EQ(events, (std::vector<std::string>{"second closure", "told"}));
}

TEST_F(WatchTest, runsWhatAnEventHandsOverThoughTheLastClosureMovedAllItMay)
{
    std::error_code error;
    const auto second = Watch::adopt(context, ::eventfd(0, 0), Watch::For::Reading, error);
    ASSERT_FALSE(error) << error.message();
    const auto secondQueue = pool.makeQueue("second", QualityOfService::UserInitiated);
    std::vector<std::string> events;
    std::promise<void> done;
    onQueue([&] {
        watch->waitReadable(strandOf(*queue), [&](const std::error_code&) {
            queue->async([&] { events.emplace_back("closure"); });
        });
        second->waitReadable(strandOf(*secondQueue), [&](const std::error_code&) {
            events.emplace_back("next event");
            done.set_value();
        });
    });
    pool.makeQueue("other", QualityOfService::UserInitiated)->async([&] {
        send("a");
        EXPECT_EQ(::eventfd_write(second->descriptor(), 1), 0);
        context->noteMoved(1UL << 20);
    });
    done.get_future().wait();
    pool.shutdown();
    EXPECT_EQ(events, (std::vector<std::string>{"closure", "next event"}));
}

TEST_F(WatchTest, tellsBehindTheClosuresThatWaitOnTheSameQueue)
{
    std::vector<std::string> events;
    std::promise<void> done;
    queue->async([&] {
        watch->waitReadable(strandOf(*queue), [&](const std::error_code&) {
            events.emplace_back("told");
            done.set_value();
        });
        send("a");
        context->noteMoved(1UL << 20);
        queue->async([&] { events.emplace_back("second closure"); });
    });
    done.get_future().wait();
    pool.shutdown();
    EXPECT_EQ(events, (std::vector<std::string>{"second closure", "told"}));
}

TEST_F(WatchTest, runsAClosureBeforeTheNextEventThoughTheLastOneMovedAllItMay)
{
    std::error_code error;
    const auto second = Watch::adopt(context, ::eventfd(0, 0), Watch::For::Reading, error);
    ASSERT_FALSE(error) << error.message();
    const auto secondQueue = pool.makeQueue("second", QualityOfService::UserInitiated);
    const auto other = pool.makeQueue("other", QualityOfService::UserInitiated);
    std::vector<std::string> events;
    std::promise<void> done;
    onQueue([&] {
        watch->waitReadable(strandOf(*queue), [&](const std::error_code&) {
            context->noteMoved(1UL << 20);
            other->async([&] { events.emplace_back("closure"); });
            EXPECT_EQ(::eventfd_write(second->descriptor(), 1), 0);
        });
        second->waitReadable(strandOf(*secondQueue), [&](const std::error_code&) {
            events.emplace_back("next event");
            done.set_value();
        });
    });
    send("a");
    done.get_future().wait();
    pool.shutdown();
    EXPECT_EQ(events, (std::vector<std::string>{"closure", "next event"}));
}

TEST_F(WatchTest, closesItsDescriptorWhenItGoes)
{
    const int descriptor = watch->descriptor();
    onQueue([this] { watch.reset(); });
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
}

TEST_F(WatchTest, tellsOneWhoWaitsToWriteThatItCannotBeWatched)
{
    // Another file has taken the descriptor's place, which epoll does not know.
    const int other = ::eventfd(0, EFD_CLOEXEC);
    ASSERT_EQ(::dup3(other, watch->descriptor(), O_CLOEXEC), watch->descriptor());
    ::close(other);
    auto told = waitWritable();
    ASSERT_TRUE(isTold(told));
    EXPECT_EQ(told.get(), std::errc::no_such_file_or_directory);
}

TEST_F(WatchTest, closesADescriptorThatCannotBeWatched)
{
    // epoll refuses regular files.
    const int file = ::open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    std::error_code error;
    EXPECT_FALSE(Watch::adopt(context, file, Watch::For::Reading, error));
    EXPECT_EQ(error, std::errc::operation_not_permitted);
    EXPECT_EQ(::fcntl(file, F_GETFD), -1);
}

TEST_F(WatchTest, leavesNoMemoryBehind)
{
    const auto useAndDrop = [this](int times) {
        for (int count = 0; count < times; ++count) {
            std::error_code error;
            EXPECT_TRUE(Watch::adopt(context, ::eventfd(0, 0), Watch::For::Reading, error));
            EXPECT_FALSE(Watch::adopt(context, -1, Watch::For::Reading, error));
        }
    };
    useAndDrop(10);
    const auto before = ::mallinfo2().uordblks; // 0 with AddressSanitizer
    useAndDrop(2000);
    EXPECT_LT(::mallinfo2().uordblks, before + 50'000);
}

class TimerTest : public testing::Test {
protected:
    ~TimerTest() override { pool.shutdown(); }

    DispatchPool pool;
    const std::shared_ptr<DispatchQueue> queue =
        pool.makeQueue("timer", QualityOfService::UserInitiated);
    Timer timer{pool.context(QualityOfService::UserInitiated)};
};

TEST_F(TimerTest, runsTheLastWorkThatWasStartedOnItsStrand)
{
    std::promise<bool> ran;
    queue->async([&] {
        timer.start(strandOf(*queue), 0ms, [] { FAIL() << "another took its place"; });
        timer.start(strandOf(*queue), 20ms, [&] { ran.set_value(queue->isCurrent()); });
    });
    EXPECT_TRUE(ran.get_future().get());
}

TEST_F(TimerTest, canBeTakenBackUpToTheLastMoment)
{
    std::promise<void> done;
    queue->async([&] {
        const auto token = std::make_shared<int>(0);
        timer.start(strandOf(*queue), 0ms, [token] { FAIL(); });
        queue->async([&, token] {
            timer.cancel();
            EXPECT_EQ(token.use_count(), 1);
            queue->asyncAfter(20ms, [&] { done.set_value(); });
        });
        // The loop looks at its timers before it runs more of the queue, so the work is already
        // queued behind the closure above.
        pool.context(QualityOfService::UserInitiated)->noteMoved(1UL << 20);
    });
    done.get_future().wait();
}

TEST_F(TimerTest, isTakenBackWhenItGoes)
{
    std::promise<void> done;
    queue->async([&] {
        {
            Timer passing{pool.context(QualityOfService::UserInitiated)};
            passing.start(strandOf(*queue), 0ms, [] { FAIL(); });
        }
        queue->asyncAfter(20ms, [&] { done.set_value(); });
    });
    done.get_future().wait();
}

TEST_F(TimerTest, leavesNothingInTheQueueWhenItIsTakenBack)
{
    const auto loop = pool.context(QualityOfService::UserInitiated);
    std::promise<long> references;
    queue->async([&] {
        const auto time = PoolContext::Clock::now() + 24h;
        const auto alarm = loop->setAlarm(time, strandOf(*queue), Work([] { FAIL(); }));
        loop->cancelAlarm(alarm);
        references.set_value(alarm.use_count());
    });
    EXPECT_EQ(references.get_future().get(), 1);
}

TEST_F(TimerTest, isReleasedByItsOwnWorkWhenThePoolIsShutDown)
{
    auto context = pool.context(QualityOfService::UserInitiated);
    auto owned = std::make_shared<Timer>(context);
    const std::weak_ptr<Timer> released = owned;
    owned->start(strandOf(*queue), 24h, [owned] { FAIL(); });
    owned.reset();
    pool.shutdown();
    EXPECT_TRUE(released.expired());
}

TEST_F(TimerTest, dropsWorkThatComesAfterTheShutdown)
{
    pool.shutdown();
    const auto token = std::make_shared<int>(0);
    timer.start(strandOf(*queue), 0ms, [token] { FAIL(); });
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(TimerTest, canBeTakenBackByThePendingWorkOfAnotherAsItGoes)
{
    // Shutdown destroys pending work in the order of its deadlines, and each closure owns the timer
    // of the next one.
    constexpr int kTimers = 8;
    auto context = pool.context(QualityOfService::UserInitiated);
    const auto token = std::make_shared<int>(0);
    std::shared_ptr<Timer> next;
    for (int hour = kTimers; hour > 0; --hour) {
        auto each = std::make_shared<Timer>(context);
        each->start(strandOf(*queue), std::chrono::hours(hour), [next, token] { FAIL(); });
        next = std::move(each);
    }
    queue->asyncAfter(1min, [first = std::move(next)] { FAIL(); });
    pool.shutdown();
    EXPECT_EQ(token.use_count(), 1);
}

} // namespace quillbox
