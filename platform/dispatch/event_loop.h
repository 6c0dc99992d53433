#pragma once

#include "platform/dispatch/closure.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

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
    using Work = Closure<64>;
    using TimerWork = Closure<16>;

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

    /// Runs the work at `time`.
    TimerId addTimer(Clock::time_point time, QueueId queue, TimerWork work);

    /// Destroys the work, unless it has run or is running.
    void removeTimer(const TimerId& timer);

    /// Called on the loop's thread: records how many bytes the running closure has moved.
    void noteMoved(std::size_t bytes) { moved_ += bytes; }

private:
    friend class FdWatcher;

    struct Task {
        QueueId queue = 0;
        Work work;
    };

    struct Timer {
        QueueId queue = 0;
        TimerWork work;
    };

    /// A place in `watchers_`.
    struct Slot {
        FdWatcher* watcher = nullptr;
        std::uint32_t uses = 0; ///< of this place so far
    };

    // Called on the loop's thread, or while no thread runs the loop. A watcher's number is never 0;
    // 0 is returned if epoll refuses the descriptor.
    std::uint64_t addWatcher(FdWatcher& watcher, int descriptor, std::uint32_t events);
    bool changeWatcher(std::uint64_t watcher, int descriptor, std::uint32_t events);
    void removeWatcher(std::uint64_t watcher);
    FdWatcher* findWatcher(std::uint64_t watcher) const;

    /// Runs one closure or handler of a queue, and destroys it there as well.
    template <typename Run, typename... Arguments>
    void runAs(QueueId queue, Run run, Arguments... arguments)
    {
        running_ = queue;
        run(arguments...);
        run.reset();
        running_ = 0;
    }

    void runPosted();
    bool takePosted();
    int timeToWait();
    void handleEvents(int timeout);
    void runDueTimers();
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
    std::size_t moved_ = 0;   ///< bytes
    std::vector<Task> taken_; ///< from `posted_`
    std::size_t next_ = 0;    ///< in `taken_`
    std::vector<Slot> watchers_;
    std::vector<std::uint32_t> freeSlots_;

    std::mutex mutex_; ///< guards the members below
    std::vector<Task> posted_;
    std::map<TimerId, Timer> timers_;
    std::uint64_t lastTimer_ = 0;
    bool isAsleep_ = false; ///< it may be waiting for events, and nobody has woken it
};

} // namespace quillbox
