#pragma once

#include <chrono>
#include <cstdint>

namespace quillbox::bench {

using Clock = std::chrono::steady_clock;

/// Waits for descriptors by epoll, level-triggered. Watches may be added from any thread;
/// the watchers are told on the one that polls.
class Poller final {
public:
    /// Is told of what happens on one descriptor, and may destroy itself then.
    class Watcher {
    public:
        Watcher() = default;
        virtual ~Watcher() = default;
        Watcher(const Watcher&) = delete;
        Watcher& operator=(const Watcher&) = delete;

        /// `events` are those of epoll(7).
        virtual void ready(std::uint32_t events) = 0;
    };

    /// Throws std::system_error, as add and change do.
    Poller();
    ~Poller();

    Poller(const Poller&) = delete;
    Poller& operator=(const Poller&) = delete;

    /// Closing the descriptor ends the watch.
    void add(int descriptor, std::uint32_t events, Watcher& watcher);
    void change(int descriptor, std::uint32_t events, Watcher& watcher);
    void remove(int descriptor);

    /// Waits until something happens, `until` at the latest, and tells the watchers.
    void poll(Clock::time_point until);

private:
    int descriptor_;
};

} // namespace quillbox::bench
