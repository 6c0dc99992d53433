#include "platform/dispatch/event_loop.h"

#include "platform/dispatch/fd_watcher.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <vector>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace quillbox {

namespace {

/// How many closures run, and how many bytes they may move, before the loop looks for events.
constexpr int kMostClosures = 256;
constexpr std::size_t kMostMoved = 256UL * 1024;

int require(int descriptor)
{
    if (descriptor < 0)
        throw std::system_error(errno, std::system_category());
    return descriptor;
}

} // namespace

EventLoop::EventLoop()
    : epoll_(require(::epoll_create1(EPOLL_CLOEXEC))),
      wakeUp_(require(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)))
{
    epoll_event event{.events = EPOLLIN | EPOLLET, .data = {.u64 = 0}};
    require(::epoll_ctl(epoll_, EPOLL_CTL_ADD, wakeUp_, &event));
}

EventLoop::~EventLoop()
{
    ::close(wakeUp_);
    ::close(epoll_);
}

void EventLoop::run()
{
    thread_.store(std::this_thread::get_id());
    while (!isStopped_.load()) {
        runPosted();
        handleEvents(timeToWait());
        postDueTimers();
    }
    thread_.store({});
}

void EventLoop::stop()
{
    isStopped_.store(true);
    wake();
}

void EventLoop::wake()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(wakeUp_, &one, sizeof one);
}

void EventLoop::wakeIfAsleep()
{
    if (std::exchange(isAsleep_, false))
        wake();
}

void EventLoop::post(QueueId queue, Work work)
{
    // Work that comes after the shutdown is destroyed after unlocking: its destructor may post
    // more.
    const std::lock_guard lock(mutex_);
    if (isShutDown_.load())
        return;
    posted_.push_back({queue, std::move(work)});
    wakeIfAsleep();
}

void EventLoop::runPosted()
{
    moved_ = 0;
    for (int count = 0; count < kMostClosures && moved_ < kMostMoved && !isStopped_; ++count) {
        Task task = takeNext();
        if (!task.work)
            return;
        // The closure is destroyed on its queue as well.
        runAs(task.queue, [&task] {
            task.work();
            task.work = {};
        });
    }
}

EventLoop::Task EventLoop::takeNext()
{
    const std::lock_guard lock(mutex_);
    if (posted_.empty())
        return {};
    Task task = std::move(posted_.front());
    posted_.pop_front();
    return task;
}

/// How long to wait for events: in milliseconds, rounded up; -1 when there is no timer.
int EventLoop::timeToWait()
{
    const std::lock_guard lock(mutex_);
    if (!posted_.empty())
        return 0;
    isAsleep_ = true;
    if (timers_.empty())
        return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(timers_.begin()->first.first - Clock::now());
    constexpr std::chrono::milliseconds kMost = std::chrono::hours(24);
    return static_cast<int>(std::clamp(left, std::chrono::milliseconds(0), kMost).count());
}

void EventLoop::handleEvents(int timeout)
{
    std::array<epoll_event, 64> events;
    const int count = ::epoll_wait(epoll_, events.data(), events.size(), timeout);
    {
        const std::lock_guard lock(mutex_);
        isAsleep_ = false;
    }
    for (int index = 0; index < count && !isStopped_.load(); ++index) {
        const auto& event = events.at(static_cast<std::size_t>(index));
        // A handler may have destroyed the watcher of a later event.
        if (const auto found = watchers_.find(event.data.u64); found != watchers_.end())
            found->second->handleEvents(event.events);
    }
}

std::uint64_t EventLoop::addWatcher(FdWatcher& watcher, int descriptor, std::uint32_t events)
{
    const auto id = ++lastWatcher_;
    epoll_event event{.events = events, .data = {.u64 = id}};
    if (::epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) != 0)
        return 0;
    watchers_.emplace(id, &watcher);
    return id;
}

bool EventLoop::changeWatcher(std::uint64_t watcher, int descriptor, std::uint32_t events)
{
    epoll_event event{.events = events, .data = {.u64 = watcher}};
    return ::epoll_ctl(epoll_, EPOLL_CTL_MOD, descriptor, &event) == 0;
}

EventLoop::TimerId EventLoop::addTimer(Clock::time_point time, QueueId queue, Work work)
{
    const std::lock_guard lock(mutex_);
    const TimerId timer(time, ++lastTimer_);
    if (isShutDown_.load())
        return timer;
    const auto position = timers_.emplace(timer, Task{queue, std::move(work)}).first;
    if (position == timers_.begin())
        wakeIfAsleep();
    return timer;
}

void EventLoop::removeTimer(const TimerId& timer)
{
    Task removed;
    const std::lock_guard lock(mutex_);
    if (const auto found = timers_.find(timer); found != timers_.end()) {
        removed = std::move(found->second);
        timers_.erase(found);
    }
}

void EventLoop::postDueTimers()
{
    const std::lock_guard lock(mutex_);
    if (timers_.empty())
        return;
    for (const auto now = Clock::now(); !timers_.empty() && timers_.begin()->first.first <= now;) {
        posted_.push_back(std::move(timers_.begin()->second));
        timers_.erase(timers_.begin());
    }
}

void EventLoop::destroyPending()
{
    // Everything is moved out of the members before any of it is destroyed: destroying one closure
    // may cancel another.
    std::deque<Task> posted;
    std::vector<FdWatcher::Handler> waits;
    std::map<TimerId, Task> timers;
    {
        const std::lock_guard lock(mutex_);
        isShutDown_.store(true);
        posted.swap(posted_);
        timers.swap(timers_);
    }
    for (const auto& [id, watcher] : watchers_) {
        for (auto* handler : {&watcher->reader_, &watcher->writer_, &watcher->failureHandler_})
            waits.push_back(handler->take());
    }
    timers.clear();
}

} // namespace quillbox
