#pragma once

#include <chrono>
#include <cstdint>
#include <map>

namespace quillbox::bench {

using Clock = std::chrono::steady_clock;

/// Waits for file descriptors with epoll, level-triggered. Descriptors may be added from any
/// thread; watchers are called on the thread that polls.
class Poller final {
public:
    /// Handles the events of one file descriptor; may destroy itself in `ready`.
    class Watcher {
    public:
        Watcher() = default;
        virtual ~Watcher() = default;
        Watcher(const Watcher&) = delete;
        Watcher& operator=(const Watcher&) = delete;

        /// `events` are those of epoll(7); 0: the time given to `callAt` has come.
        virtual void ready(std::uint32_t events) = 0;
    };

    /// Throws std::system_error, as do add, change and poll.
    Poller();
    ~Poller();

    Poller(const Poller&) = delete;
    Poller& operator=(const Poller&) = delete;

    /// Closing the file descriptor removes it.
    void add(int descriptor, std::uint32_t events, Watcher& watcher);
    void change(int descriptor, std::uint32_t events, Watcher& watcher);
    void remove(int descriptor);

    /// Calls the watcher once, at that time. Only for the thread that polls.
    void callAt(Clock::time_point time, Watcher& watcher);
    /// Drops all calls of a watcher.
    void dropCalls(const Watcher& watcher);

    /// Waits for events, until `until` and at most one second, and calls the watchers.
    void poll(Clock::time_point until);

private:
    void callDue();

    std::multimap<Clock::time_point, Watcher*> calls_;
    int descriptor_;
};

} // namespace quillbox::bench
