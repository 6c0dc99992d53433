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

/// An event loop of a `DispatchPool`, run by one thread: closures, alarms, and descriptors that
/// epoll tells of. Everything that uses it holds it, so that it goes last. Thread-safe, where
/// nothing else is said.
///
/// A descriptor is registered once, edge-triggered, and then costs a system call only when there is
/// news of it: to arm each wait anew, as general libraries do, takes as long as reading a small
/// message, and a short session waits a dozen times.
class PoolContext final {
public:
    using Clock = std::chrono::steady_clock;

    /// Throws where the system gives no descriptors.
    PoolContext();
    ~PoolContext();

    PoolContext(const PoolContext&) = delete;
    PoolContext& operator=(const PoolContext&) = delete;

    /// Runs the loop on this thread until it is stopped.
    void runHere();

    /// The loop ends after the closure that runs at this moment.
    void stop();

    /// Destroys all that is pending. Called once the thread no longer runs the loop; what is handed
    /// over later is destroyed at once.
    void destroyPending();

    bool isShutDown() const { return isShutDown_.load(); }

    Strand makeStrand() { return Strand(*this); }

    /// Runs on the loop's thread, in a turn of its own.
    void post(Work work);

    /// Says on the loop's thread that the closure which runs has moved so many bytes. Once it is
    /// much, all strands leave what is pending for after the next look at the network: otherwise
    /// one that carries all it can would hold up a small message on another for as long as it may
    /// run closures.
    void noteMoved(std::size_t bytes) { moved_ += bytes; }

    /// Puts the work on the strand when the time has come.
    std::shared_ptr<Alarm> setAlarm(Clock::time_point time, const Strand& strand, Work work);

    /// Destroys the work, unless it has begun. On the alarm's strand, or while it is not pending.
    void cancelAlarm(const std::shared_ptr<Alarm>& alarm);

    /// Registers a descriptor until it is closed and its state forgotten; for `Watch`. Gives
    /// nothing and an error in `errno` where that is not possible.
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

    bool hasMovedMuch() const { return moved_ >= kMostMovedInOneTurn; }

    void runPosted();
    void takeEvents(int timeout);
    void takeEvent(std::uint64_t id, std::uint32_t events);
    void takeHandedOver();
    int untilNextAlarm();
    void ringAlarms();
    void wake();

    const int epoll_;
    const int wakeUp_; ///< an eventfd; its edge is the news, so that nobody reads it

    std::atomic<std::thread::id> thread_;    ///< the loop's, while it runs
    const Strand::State* running_ = nullptr; ///< used on that thread only
    std::deque<Work> posted_;                ///< used on that thread only
    std::size_t moved_ = 0;                  ///< since the last look; used on that thread only
    std::atomic<bool> isStopped_ = false;
    std::atomic<bool> isShutDown_ = false;

    std::mutex mutex_; ///< guards what follows
    std::vector<Work> handedOver_;
    bool isWoken_ = false;
    Alarm::Queue alarms_;
    std::uint64_t lastWatch_ = 0; ///< 0 is the wake-up's
    std::unordered_map<std::uint64_t, std::shared_ptr<WatchState>> watches_;
    std::map<const Strand::State*, std::weak_ptr<Strand::State>> strands_;
};

} // namespace quillbox
