#pragma once

#include "platform/dispatch/closure.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>

namespace quillbox {

class FdWatcher;

/// The event loop of a `DispatchPool` thread: runs closures in the order in which they were posted,
/// closures whose time has come, and the handlers of `FdWatcher` for epoll events. As it has one
/// thread, whatever runs on it is serial.
///
/// Closures run until none is left, then the loop waits for events: an epoll_wait in between would
/// cost as much as moving a small message. After a number of closures, or 256 KiB that they have
/// moved, it looks for events nevertheless and handles them before the other closures. Otherwise a
/// connection at full speed, or a queue that is never done, would delay everything else.
///
/// Thread-safe, unless noted otherwise. Its queues share ownership of it, so it is destroyed last.
class EventLoop final {
public:
    using Clock = std::chrono::steady_clock;
    using Work = Closure<>;

    /// Tells the queues of a loop apart.
    using QueueId = std::uint64_t;

    using TimerId = std::pair<Clock::time_point, std::uint64_t>;

    /// Throws `std::system_error` when no file descriptor is available.
    EventLoop();
    ~EventLoop();

    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    /// Runs the loop on this thread until it is stopped.
    void run();

    /// Makes the loop return after the closure that is running.
    void stop();

    /// Destroys everything pending. Called when the thread no longer runs the loop; what is posted
    /// later is destroyed immediately.
    void destroyPending();

    bool isShutDown() const { return isShutDown_.load(); }

    QueueId addQueue() { return ++lastQueue_; }

    /// Whether the caller is a closure or handler of that queue.
    bool isRunning(QueueId queue) const
    {
        return thread_.load() == std::this_thread::get_id() && running_ == queue;
    }

    /// Runs the work on the loop's thread, never inside this call.
    void post(QueueId queue, Work work);

    /// Posts the work at `time`.
    TimerId addTimer(Clock::time_point time, QueueId queue, Work work);

    /// Destroys the work, unless it has been posted.
    void removeTimer(const TimerId& timer);

    /// Called on the loop's thread: records how many bytes the running closure has moved.
    void noteMoved(std::size_t bytes) { moved_ += bytes; }

private:
    friend class FdWatcher;

    struct Task {
        QueueId queue = 0;
        Work work;
    };

    // Called on the loop's thread, or while no thread runs the loop.
    std::uint64_t addWatcher(FdWatcher& watcher, int descriptor, std::uint32_t events);
    bool changeWatcher(std::uint64_t watcher, int descriptor, std::uint32_t events);
    void removeWatcher(std::uint64_t watcher) { watchers_.erase(watcher); }

    /// Runs one closure or handler of a queue.
    template <typename Function> void runAs(QueueId queue, Function function)
    {
        running_ = queue;
        function();
        running_ = 0;
    }

    void runPosted();
    Task takeNext();
    int timeToWait();
    void handleEvents(int timeout);
    void postDueTimers();
    void wakeIfAsleep();
    void wake();

    const int epoll_;
    const int wakeUp_; ///< an edge-triggered eventfd: each write wakes the loop, nobody reads it

    std::atomic<std::thread::id> thread_; ///< the loop's, while it runs
    std::atomic<bool> isStopped_ = false;
    std::atomic<bool> isShutDown_ = false;
    std::atomic<QueueId> lastQueue_ = 0;

    // Used on the loop's thread, or while no thread runs the loop.
    QueueId running_ = 0;
    std::size_t moved_ = 0;         ///< bytes
    std::uint64_t lastWatcher_ = 0; ///< 0 stands for `wakeUp_`
    std::unordered_map<std::uint64_t, FdWatcher*> watchers_;

    std::mutex mutex_; ///< guards the members below
    std::deque<Task> posted_;
    std::map<TimerId, Task> timers_;
    std::uint64_t lastTimer_ = 0;
    bool isAsleep_ = false; ///< it may be waiting for events, and nobody has woken it
};

} // namespace quillbox
