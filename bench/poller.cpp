#include "bench/poller.h"

#include <algorithm>
#include <array>
#include <cerrno>
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

void Poller::poll(Clock::time_point until)
{
    using std::chrono::milliseconds;
    const auto left = std::chrono::ceil<milliseconds>(until - Clock::now());
    const auto timeout = std::clamp(left, milliseconds(0), milliseconds(1000));
    std::array<epoll_event, 256> events;
    const int count =
        ::epoll_wait(descriptor_, events.data(), events.size(), static_cast<int>(timeout.count()));
    for (int index = 0; index < count; ++index) {
        const auto& event = events.at(static_cast<std::size_t>(index));
        static_cast<Watcher*>(event.data.ptr)->ready(event.events);
    }
}

} // namespace quillbox::bench
