#include "platform/dnssd/processes/avahi_loop.h"

#include <algorithm>
#include <new>
#include <thread>
#include <utility>

namespace quillbox::dnssd {

struct AvahiLoop::Watch {
    std::function<void()> handler;
    AvahiWatch* avahiWatch = nullptr;
};

AvahiLoop::AvahiLoop() : simplePoll(avahi_simple_poll_new())
{
    // Fails only when out of memory or file descriptors, and no engine works without it.
    if (simplePoll == nullptr)
        throw std::bad_alloc();
}

AvahiLoop::~AvahiLoop()
{
    for (const auto& watch : watches)
        poll()->watch_free(watch->avahiWatch);
    avahi_simple_poll_free(simplePoll);
}

const AvahiPoll* AvahiLoop::poll() const
{
    return avahi_simple_poll_get(simplePoll);
}

void AvahiLoop::watch(int descriptor, std::function<void()> handler)
{
    auto watch = std::make_unique<Watch>();
    watch->handler = std::move(handler);
    watch->avahiWatch =
        poll()->watch_new(poll(), descriptor, AVAHI_WATCH_IN, &AvahiLoop::onEvent, watch.get());
    if (watch->avahiWatch != nullptr)
        watches.push_back(std::move(watch));
}

void AvahiLoop::onEvent(AvahiWatch* /*watch*/, int /*descriptor*/, AvahiWatchEvent /*event*/,
                        void* context)
{
    static_cast<Watch*>(context)->handler();
}

void AvahiLoop::turn(std::optional<Clock::time_point> deadline)
{
    constexpr std::chrono::hours kLongest(1);
    int timeout = -1;
    if (deadline) {
        const auto wait = std::clamp<Clock::duration>(*deadline - Clock::now(),
                                                      Clock::duration::zero(), kLongest);
        // Rounded up, or the loop would busy-wait through the last millisecond.
        timeout = static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(wait).count());
    }
    if (avahi_simple_poll_iterate(simplePoll, timeout) < 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(100)); // failed: no busy loop
}

} // namespace quillbox::dnssd
