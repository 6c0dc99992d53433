#include "bench/poller.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <system_error>

#include <sys/epoll.h>
#include <unistd.h>

namespace quillbox::bench {

namespace {

void control(int epoll, int operation, int descriptor, std::uint32_t events,
             Poller::Watcher& watcher)
{
    epoll_event event{};
    event.events = events;
    event.data.ptr = &watcher;
    if (::epoll_ctl(epoll, operation, descriptor, &event) != 0)
        throw std::system_error(errno, std::system_category(), "epoll_ctl");
}

} // namespace

Poller::Poller() : descriptor_(::epoll_create1(EPOLL_CLOEXEC))
{
    if (descriptor_ < 0)
        throw std::system_error(errno, std::system_category(), "epoll_create1");
}

Poller::~Poller()
{
    ::close(descriptor_);
}

void Poller::add(int descriptor, std::uint32_t events, Watcher& watcher)
{
    control(descriptor_, EPOLL_CTL_ADD, descriptor, events, watcher);
}

void Poller::change(int descriptor, std::uint32_t events, Watcher& watcher)
{
    control(descriptor_, EPOLL_CTL_MOD, descriptor, events, watcher);
}

void Poller::remove(int descriptor)
{
    epoll_event unused{};
    ::epoll_ctl(descriptor_, EPOLL_CTL_DEL, descriptor, &unused);
}

void Poller::callAt(Clock::time_point time, Watcher& watcher)
{
    calls_.emplace(time, &watcher);
}

void Poller::dropCalls(const Watcher& watcher)
{
    std::erase_if(calls_, [&watcher](const auto& call) { return call.second == &watcher; });
}

void Poller::poll(Clock::time_point until)
{
    using std::chrono::nanoseconds;
    using std::chrono::seconds;
    if (!calls_.empty())
        until = std::min(until, calls_.begin()->first);
    // epoll_wait rounds to milliseconds, in which a fast Wi-Fi sends several aggregates.
    const auto left = std::clamp<nanoseconds>(until - Clock::now(), seconds(0), seconds(1));
    const auto whole = std::chrono::floor<seconds>(left);
    const timespec timeout{.tv_sec = whole.count(), .tv_nsec = (left - whole).count()};
    std::array<epoll_event, 256> events;
    const int count = ::epoll_pwait2(descriptor_, events.data(), events.size(), &timeout, nullptr);
    if (count < 0 && errno != EINTR)
        throw std::system_error(errno, std::system_category(), "epoll_pwait2");
    for (int index = 0; index < count; ++index) {
        const auto& event = events.at(static_cast<std::size_t>(index));
        static_cast<Watcher*>(event.data.ptr)->ready(event.events);
    }
    callDue();
}

void Poller::callDue()
{
    const auto now = Clock::now();
    while (!calls_.empty() && calls_.begin()->first <= now) {
        Watcher* watcher = calls_.begin()->second;
        calls_.erase(calls_.begin());
        watcher->ready(0);
    }
}

} // namespace quillbox::bench
