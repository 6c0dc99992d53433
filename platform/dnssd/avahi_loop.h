#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <avahi-common/simple-watch.h>
#include <avahi-common/watch.h>

namespace quillbox::dnssd {

/// Avahi's own event loop, turned by hand, with descriptors of ours in it. One thread; waking it
/// from another is done through a descriptor, for Avahi's own way is a data race.
class AvahiLoop final {
public:
    using Clock = std::chrono::steady_clock;

    AvahiLoop();
    AvahiLoop(const AvahiLoop&) = delete;
    AvahiLoop& operator=(const AvahiLoop&) = delete;
    ~AvahiLoop();

    const AvahiPoll* poll() const;

    /// Calls `handler` in each turn in which the descriptor is readable or broken, as long as the
    /// loop lives. The handler reads it.
    void watch(int descriptor, std::function<void()> handler);

    /// Waits for one thing to happen, until `deadline` at the latest, and lets it be dealt with.
    void turn(std::optional<Clock::time_point> deadline);

private:
    struct Watch;

    static void onEvent(AvahiWatch* watch, int descriptor, AvahiWatchEvent event, void* context);

    AvahiSimplePoll* simplePoll;
    std::vector<std::unique_ptr<Watch>> watches;
};

} // namespace quillbox::dnssd
