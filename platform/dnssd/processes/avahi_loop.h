#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <avahi-common/simple-watch.h>
#include <avahi-common/watch.h>

namespace quillbox::dnssd {

/// Avahi's event loop (`AvahiSimplePoll`), iterated manually, with additional file descriptors in
/// it. Single-threaded; to wake it from another thread use one of these descriptors, because
/// Avahi's own wake-up function has a data race.
class AvahiLoop final {
public:
    using Clock = std::chrono::steady_clock;

    AvahiLoop();
    AvahiLoop(const AvahiLoop&) = delete;
    AvahiLoop& operator=(const AvahiLoop&) = delete;
    ~AvahiLoop();

    const AvahiPoll* poll() const;

    /// Calls `handler` in each iteration in which the descriptor is readable or broken, for as long
    /// as the loop exists. The handler must read it.
    void watch(int descriptor, std::function<void()> handler);

    /// Runs one iteration: waits for events, until `deadline` at the latest, and handles them.
    void turn(std::optional<Clock::time_point> deadline);

private:
    struct Watch;

    static void onEvent(AvahiWatch* watch, int descriptor, AvahiWatchEvent event, void* context);

    AvahiSimplePoll* simplePoll;
    std::vector<std::unique_ptr<Watch>> watches;
};

} // namespace quillbox::dnssd
