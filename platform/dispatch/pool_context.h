#pragma once

#include "platform/dispatch/alarm.h"
#include "platform/dispatch/strand.h"
#include "platform/dispatch/watch_state.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

namespace quillbox {

/// The event loop of a `DispatchPool` thread: runs closures, alarms, and handlers for epoll events
/// on file descriptors. Its users share ownership of it, so it is destroyed last. Thread-safe,
/// unless noted otherwise.
///
/// A file descriptor is registered once, edge-triggered; waiting for it then takes no system call.
/// Re-arming epoll for each wait, as general-purpose libraries do, takes as long as reading a small
/// message, and even a short session waits a dozen times.
class PoolContext final {
public:
    using Clock = std::chrono::steady_clock;

    /// Throws `std::system_error` when no file descriptor is available.
    PoolContext();
    ~PoolContext();

    PoolContext(const PoolContext&) = delete;
    PoolContext& operator=(const PoolContext&) = delete;

    /// Runs the loop on this thread until it is stopped.
    void runHere();

    /// Makes the loop return after the closure that is running. From any thread.
    void stop();

    /// Destroys everything pending. Called when the thread no longer runs the loop; work posted
    /// later is destroyed immediately.
    void destroyPending();

    bool isShutDown() const { return isShutDown_.load(); }

    Strand makeStrand() { return Strand(*this); }

    /// Runs the work on the loop's thread, never inside this call.
    void post(Work work);

    /// Called on the loop's thread: records how many bytes the running closure has moved. Once
    /// `kMostMovedInOneTurn` is reached, all strands postpone pending closures until after the next
    /// epoll_wait. Otherwise a connection at full speed could delay a small message on another one
    /// for as many closures as a strand may run in a turn.
    void noteMoved(std::size_t bytes) { moved_ += bytes; }

    /// Posts the work to the strand at `time`.
    std::shared_ptr<Alarm> setAlarm(Clock::time_point time, const Strand& strand, Work work);

    /// Destroys the work, unless it has started. Called on the alarm's strand, or while the alarm
    /// is not pending.
    void cancelAlarm(const std::shared_ptr<Alarm>& alarm);

    /// Registers a file descriptor with epoll, for `Watch`, which ends the registration by closing
    /// the descriptor and calling `forget`. Null, with the error in `errno`, on failure.
    std::shared_ptr<WatchState> watch(int descriptor, std::uint32_t events);
    bool changeWatch(const WatchState& state, int descriptor, std::uint32_t events);
    void forget(const WatchState& state);

private:
    friend class Strand;

    static constexpr std::size_t kMostMovedInOneTurn = 256UL * 1024;

    void add(const std::shared_ptr<Strand::State>& state);
    void remove(const Strand::State* state);

    bool isThread() const { return thread_.load() == std::this_thread::get_id(); }
    bool isIdleThread() const { return isThread() && running_ == nullptr; }
    bool isRunning(const Strand::State* state) const { return isThread() && running_ == state; }
    void setRunning(const Strand::State* state) { running_ = state; }

    /// Whether no further closure may run for now: until the next epoll_wait, or ever.
    bool mustPause() const { return moved_ >= kMostMovedInOneTurn || isStopped_.load(); }

    void runPosted();
    void takeEvents(int timeout);
    void takeEvent(std::uint64_t id, std::uint32_t events);
    void takeHandedOver();
    int untilNextAlarm();
    void ringAlarms();
    void wake();

    const int epoll_;
    const int wakeUp_; ///< an edge-triggered eventfd: each write wakes the loop, nobody reads it

    std::atomic<std::thread::id> thread_;    ///< the loop's, while it runs
    const Strand::State* running_ = nullptr; ///< used on that thread only
    std::deque<Work> posted_;                ///< used on that thread only
    std::size_t moved_ = 0;                  ///< bytes; used on that thread only
    std::atomic<bool> isStopped_ = false;
    std::atomic<bool> isShutDown_ = false;

    std::mutex mutex_; ///< guards the members below
    std::vector<Work> handedOver_;
    bool isWoken_ = false;
    Alarm::Queue alarms_;
    std::uint64_t lastWatch_ = 0; ///< 0 is the id of `wakeUp_`
    std::unordered_map<std::uint64_t, std::shared_ptr<WatchState>> watches_;
    std::map<const Strand::State*, std::weak_ptr<Strand::State>> strands_;
};

} // namespace quillbox
