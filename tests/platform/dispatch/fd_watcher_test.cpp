#include "platform/dispatch/dispatch_pool.h"
#include "platform/dispatch/fd_watcher.h"
#include "platform/dispatch/loop_queue.h"
#include "platform/dispatch/timer.h"
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
class FdWatcherTest : public testing::Test {
protected:
    FdWatcherTest()
    {
        std::array<int, 2> ends{};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0);
        peer = ends[1];
        take(ends[0]);
    }

    ~FdWatcherTest() override
    {
        pool.shutdown();
        closePeer();
    }

    void take(int descriptor)
    {
        auto error = std::make_error_code(std::errc::io_error);
        onQueue(
            [&] { watch = FdWatcher::adopt(queue, descriptor, FdWatcher::For::Reading, error); });
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
            watch->waitReadable([told](const std::error_code& error) { told->set_value(error); });
        });
        return told->get_future();
    }

    std::future<std::error_code> waitWritable()
    {
        auto told = std::make_shared<std::promise<std::error_code>>();
        onQueue([&] {
            watch->waitWritable([told](const std::error_code& error) { told->set_value(error); });
        });
        return told->get_future();
    }

    std::future<std::error_code> waitForFailure()
    {
        auto told = std::make_shared<std::promise<std::error_code>>();
        onQueue([&] {
            watch->waitForFailure([told](const std::error_code& error) { told->set_value(error); });
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

    /// Called on the queue's thread.
    void noteMoved(std::size_t bytes) const { LoopQueue::from(queue)->loop().noteMoved(bytes); }

    void closePeer()
    {
        if (const int descriptor = std::exchange(peer, -1); descriptor >= 0)
            ::close(descriptor);
    }

    DispatchPool pool;
    const std::shared_ptr<DispatchQueue> queue =
        pool.makeQueue("watch", QualityOfService::UserInitiated);
    std::unique_ptr<FdWatcher> watch;
    int peer = -1;
};

TEST_F(FdWatcherTest, tellsWhatComesDuringTheWait)
{
    const auto told = waitReadable();
    EXPECT_TRUE(isSilent(told));
    send("a");
    EXPECT_TRUE(isTold(told));
    EXPECT_EQ(read(), "a");
    EXPECT_TRUE(isSilent(waitReadable()));
}

TEST_F(FdWatcherTest, tellsWhatCameWhileNobodyWaitedOnce)
{
    send("a");
    settle();
    auto first = waitReadable();
    ASSERT_TRUE(isTold(first));
    EXPECT_EQ(first.get(), std::error_code());
    EXPECT_EQ(read(), "a");
    EXPECT_TRUE(isSilent(waitReadable()));
}

TEST_F(FdWatcherTest, tellsWhatCameAfterAWaitHadEnded)
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

TEST_F(FdWatcherTest, tellsWhatComesBehindUrgentDataAfterAReadThatStoppedThere)
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

TEST_F(FdWatcherTest, tellsTheEndAfterAReadThatLeftRoom)
{
    send("a");
    closePeer();
    settle();
    ASSERT_TRUE(isTold(waitReadable()));
    EXPECT_EQ(read(), "a");
    EXPECT_TRUE(isTold(waitReadable()));
    EXPECT_EQ(read(), "");
}

TEST_F(FdWatcherTest, tellsTheEndOfWhatThePeerSendsAfterAReadThatLeftRoom)
{
    send("a");
    EXPECT_EQ(::shutdown(peer, SHUT_WR), 0);
    settle();
    ASSERT_TRUE(isTold(waitReadable()));
    EXPECT_EQ(read(), "a");
    EXPECT_TRUE(isTold(waitReadable()));
    EXPECT_EQ(read(), "");
}

TEST_F(FdWatcherTest, tellsTheEndThatCameTogetherWithBytesToOneWhoWaited)
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

TEST_F(FdWatcherTest, tellsRoomToWriteAndNotBefore)
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

TEST_F(FdWatcherTest, tellsBytesAlsoAfterAWaitForRoom)
{
    ASSERT_TRUE(isTold(waitWritable()));
    const auto told = waitReadable();
    send("a");
    EXPECT_TRUE(isTold(told));
}

TEST_F(FdWatcherTest, tellsOneWhoWaitsToWriteThatNobodyReadsAnyMore)
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

TEST_F(FdWatcherTest, tellsOneWhoWaitsToReadThatNobodyWritesAnyMore)
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

TEST_F(FdWatcherTest, tellsAFailureAndNothingElseToOneWhoWaitsForIt)
{
    const auto told = waitForFailure();
    send("a");
    EXPECT_TRUE(isSilent(told));
    closePeer();
    EXPECT_TRUE(isTold(told));
}

TEST_F(FdWatcherTest, tellsAFailureAlsoWhenItHasComeAlready)
{
    closePeer();
    settle();
    EXPECT_TRUE(isTold(waitForFailure()));
    EXPECT_TRUE(isTold(waitForFailure()));
}

TEST_F(FdWatcherTest, endsWaitsWithAnErrorWhenTheyAreCancelledAndWhenItGoes)
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

TEST_F(FdWatcherTest, endsWaitsForRoomWithAnErrorAndThoseForAFailureUntold)
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

TEST_F(FdWatcherTest, destroysWaitsUntoldWhenThePoolIsShutDown)
{
    auto token = std::make_shared<int>(0);
    onQueue([&] {
        const std::string bytes(4096, 'x');
        while (::send(watch->descriptor(), bytes.data(), bytes.size(), 0) > 0) {
        }
        watch->waitReadable([token](const std::error_code&) { FAIL(); });
        watch->waitWritable([token](const std::error_code&) { FAIL(); });
        watch->waitForFailure([token](const std::error_code&) { FAIL(); });
    });
    EXPECT_EQ(token.use_count(), 4);
    pool.shutdown();
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(FdWatcherTest, destroysWaitsThatBeginAfterTheShutdown)
{
    pool.shutdown();
    const auto token = std::make_shared<int>(0);
    watch->waitReadable([token](const std::error_code&) { FAIL(); });
    watch->waitWritable([token](const std::error_code&) { FAIL(); });
    watch->waitForFailure([token](const std::error_code&) { FAIL(); });
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(FdWatcherTest, leavesTimeToOthersWhileOneMovesAllItCan)
{
    // A closure that submits itself forever and reports 1 MiB moved each time. Reads on another
    // socket are still handled.
    const auto other = pool.makeQueue("flood", QualityOfService::UserInitiated);
    auto isOver = std::make_shared<bool>(false);
    std::function<void()> flood = [&flood, other, isOver, this] {
        noteMoved(1UL << 20);
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

TEST_F(FdWatcherTest, tellsBetweenTwoClosuresOfWhichTheFirstMovedAllItMay)
{
    const auto other = pool.makeQueue("other", QualityOfService::UserInitiated);
    std::vector<std::string> events;
    onQueue(
        [&] { watch->waitReadable([&](const std::error_code&) { events.emplace_back("told"); }); });
    std::promise<void> done;
    other->async([&] {
        send("a");
        noteMoved(1UL << 20);
        other->async([&] {
            events.emplace_back("second closure");
            done.set_value();
        });
    });
    done.get_future().wait();
    pool.shutdown();
    EXPECT_EQ(events, (std::vector<std::string>{"told", "second closure"}));
}

TEST_F(FdWatcherTest, tellsBehindTheClosuresThatAClosureHandsOver)
{
    const auto other = pool.makeQueue("other", QualityOfService::UserInitiated);
    std::vector<std::string> events;
    std::promise<void> done;
    queue->async([&] {
        watch->waitReadable([&](const std::error_code&) {
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

TEST_F(FdWatcherTest, runsAClosureBeforeTheNextEventThoughTheLastOneMovedAllItMay)
{
    const auto secondQueue = pool.makeQueue("second", QualityOfService::UserInitiated);
    std::unique_ptr<FdWatcher> second;
    onQueue([&] {
        std::error_code error;
        second = FdWatcher::adopt(secondQueue, ::eventfd(0, 0), FdWatcher::For::Reading, error);
        EXPECT_FALSE(error) << error.message();
    });
    const auto other = pool.makeQueue("other", QualityOfService::UserInitiated);
    std::vector<std::string> events;
    std::promise<void> done;
    onQueue([&] {
        watch->waitReadable([&](const std::error_code&) {
            noteMoved(1UL << 20);
            other->async([&] { events.emplace_back("closure"); });
            EXPECT_EQ(::eventfd_write(second->descriptor(), 1), 0);
        });
        second->waitReadable([&](const std::error_code&) {
            events.emplace_back("next event");
            done.set_value();
        });
    });
    send("a");
    done.get_future().wait();
    pool.shutdown();
    EXPECT_EQ(events, (std::vector<std::string>{"closure", "next event"}));
}

TEST_F(FdWatcherTest, closesItsDescriptorWhenItGoes)
{
    const int descriptor = watch->descriptor();
    onQueue([this] { watch.reset(); });
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
}

TEST_F(FdWatcherTest, releasesWhatItHoldsOnceTheDescriptorIsClosed)
{
    bool wasClosed = false;
    onQueue([&] {
        std::error_code error;
        const int descriptor = ::eventfd(0, EFD_CLOEXEC);
        std::shared_ptr<void> held(&wasClosed, [&wasClosed, descriptor](void*) {
            wasClosed = ::fcntl(descriptor, F_GETFD) == -1;
        });
        FdWatcher::adopt(queue, descriptor, FdWatcher::For::Reading, error, std::move(held));
        EXPECT_FALSE(error) << error.message();
    });
    EXPECT_TRUE(wasClosed);
}

TEST_F(FdWatcherTest, tellsOneWhoWaitsToWriteThatItCannotBeWatched)
{
    // Another file has taken the descriptor's place, which epoll does not know.
    const int other = ::eventfd(0, EFD_CLOEXEC);
    ASSERT_EQ(::dup3(other, watch->descriptor(), O_CLOEXEC), watch->descriptor());
    ::close(other);
    auto told = waitWritable();
    ASSERT_TRUE(isTold(told));
    EXPECT_EQ(told.get(), std::errc::no_such_file_or_directory);
}

TEST_F(FdWatcherTest, closesADescriptorThatCannotBeWatched)
{
    // epoll refuses regular files.
    const int file = ::open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    std::error_code error;
    onQueue([&] { EXPECT_FALSE(FdWatcher::adopt(queue, file, FdWatcher::For::Reading, error)); });
    EXPECT_EQ(error, std::errc::operation_not_permitted);
    EXPECT_EQ(::fcntl(file, F_GETFD), -1);
}

TEST_F(FdWatcherTest, leavesNoMemoryBehind)
{
    const auto useAndDrop = [this](int times) {
        for (int count = 0; count < times; ++count) {
            std::error_code error;
            EXPECT_TRUE(FdWatcher::adopt(queue, ::eventfd(0, 0), FdWatcher::For::Reading, error));
            EXPECT_FALSE(FdWatcher::adopt(queue, -1, FdWatcher::For::Reading, error));
        }
    };
    onQueue([&] { useAndDrop(10); });
    const auto before = ::mallinfo2().uordblks; // 0 with AddressSanitizer
    onQueue([&] { useAndDrop(2000); });
    EXPECT_LT(::mallinfo2().uordblks, before + 50'000);
}

class TimerTest : public testing::Test {
protected:
    ~TimerTest() override { pool.shutdown(); }

    DispatchPool pool;
    const std::shared_ptr<DispatchQueue> queue =
        pool.makeQueue("timer", QualityOfService::UserInitiated);
    Timer timer{queue};
};

TEST_F(TimerTest, runsTheLastWorkThatWasStartedOnItsStrand)
{
    std::promise<bool> ran;
    queue->async([&] {
        timer.start(0ms, [] { FAIL() << "another took its place"; });
        timer.start(20ms, [&] { ran.set_value(queue->isCurrent()); });
    });
    EXPECT_TRUE(ran.get_future().get());
}

TEST_F(TimerTest, canBeTakenBackUpToTheLastMoment)
{
    std::promise<void> done;
    queue->async([&] {
        const auto token = std::make_shared<int>(0);
        timer.start(0ms, [token] { FAIL(); });
        queue->async([&, token] {
            timer.cancel();
            EXPECT_EQ(token.use_count(), 1);
            queue->asyncAfter(20ms, [&] { done.set_value(); });
        });
    });
    done.get_future().wait();
}

TEST_F(TimerTest, isTakenBackWhenItGoes)
{
    std::promise<void> done;
    queue->async([&] {
        {
            Timer passing{queue};
            passing.start(0ms, [] { FAIL(); });
        }
        queue->asyncAfter(20ms, [&] { done.set_value(); });
    });
    done.get_future().wait();
}

TEST_F(TimerTest, leavesNothingBehindWhenItIsTakenBack)
{
    const auto startAndCancel = [this](int times) {
        for (int count = 0; count < times; ++count) {
            timer.start(24h, [] { FAIL(); });
            timer.cancel();
        }
    };
    startAndCancel(10);
    const auto before = ::mallinfo2().uordblks; // 0 with AddressSanitizer
    startAndCancel(2000);
    EXPECT_LT(::mallinfo2().uordblks, before + 50'000);
}

TEST_F(TimerTest, isReleasedByItsOwnWorkWhenThePoolIsShutDown)
{
    auto owned = std::make_shared<Timer>(queue);
    const std::weak_ptr<Timer> released = owned;
    owned->start(24h, [owned] { FAIL(); });
    owned.reset();
    pool.shutdown();
    EXPECT_TRUE(released.expired());
}

TEST_F(TimerTest, dropsWorkThatComesAfterTheShutdown)
{
    pool.shutdown();
    const auto token = std::make_shared<int>(0);
    timer.start(0ms, [token] { FAIL(); });
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(TimerTest, canBeTakenBackByThePendingWorkOfAnotherAsItGoes)
{
    // Shutdown destroys pending work in the order of its deadlines, and each closure owns the timer
    // of the next one.
    constexpr int kTimers = 8;
    const auto token = std::make_shared<int>(0);
    std::shared_ptr<Timer> next;
    for (int hour = kTimers; hour > 0; --hour) {
        auto each = std::make_shared<Timer>(queue);
        each->start(std::chrono::hours(hour), [next, token] { FAIL(); });
        next = std::move(each);
    }
    queue->asyncAfter(1min, [first = std::move(next)] { FAIL(); });
    pool.shutdown();
    EXPECT_EQ(token.use_count(), 1);
}

} // namespace quillbox
