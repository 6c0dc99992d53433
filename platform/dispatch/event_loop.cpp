#include "platform/dispatch/event_loop.h"

#include "platform/dispatch/fd_watcher.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <system_error>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace quillbox {

namespace {

/// How many closures run, and how many bytes they may move, before the loop looks for events.
constexpr int kMostClosures = 256;
constexpr std::size_t kMostMoved = 256UL * 1024;

/// What many closures at once have occupied is returned afterwards.
constexpr std::size_t kMostKept = 1024;

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
        runDueTimers();
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
        if (next_ == taken_.size() && !takePosted())
            return;
        Task& task = taken_[next_++];
        runAs(task.queue, std::move(task.work));
    }
}

/// Takes all closures that were posted, once those taken before have run.
bool EventLoop::takePosted()
{
    next_ = 0;
    taken_.clear();
    if (taken_.capacity() > kMostKept)
        std::vector<Task>().swap(taken_);
    const std::lock_guard lock(mutex_);
    taken_.swap(posted_);
    return !taken_.empty();
}

/// How long to wait for events: in milliseconds, rounded up; -1 when there is no timer.
int EventLoop::timeToWait()
{
    const std::lock_guard lock(mutex_);
    if (next_ < taken_.size() || !posted_.empty())
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
        if (auto* const watcher = findWatcher(event.data.u64))
            watcher->handleEvents(event.events);
    }
}

/// A number consists of how often a place in `watchers_` was used, and of the place, counted
/// from 1.
std::uint64_t EventLoop::addWatcher(FdWatcher& watcher, int descriptor, std::uint32_t events)
{
    if (freeSlots_.empty()) {
        freeSlots_.push_back(static_cast<std::uint32_t>(watchers_.size()));
        watchers_.emplace_back();
    }
    const auto index = freeSlots_.back();
    Slot& slot = watchers_[index];
    const auto id = std::uint64_t{slot.uses + 1} << 32U | (index + 1);
    epoll_event event{.events = events, .data = {.u64 = id}};
    if (::epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) != 0)
        return 0;
    freeSlots_.pop_back();
    slot = {.watcher = &watcher, .uses = slot.uses + 1};
    return id;
}

/// Null if that watcher is gone. The number 0 stands for `wakeUp_`.
FdWatcher* EventLoop::findWatcher(std::uint64_t watcher) const
{
    const auto place = static_cast<std::uint32_t>(watcher);
    if (place == 0)
        return nullptr;
    const Slot& slot = watchers_[place - 1];
    return slot.uses == watcher >> 32U ? slot.watcher : nullptr;
}

void EventLoop::removeWatcher(std::uint64_t watcher)
{
    if (findWatcher(watcher) == nullptr)
        return;
    const auto index = static_cast<std::uint32_t>(watcher) - 1;
    watchers_[index].watcher = nullptr;
    freeSlots_.push_back(index);
}

bool EventLoop::changeWatcher(std::uint64_t watcher, int descriptor, std::uint32_t events)
{
    epoll_event event{.events = events, .data = {.u64 = watcher}};
    return ::epoll_ctl(epoll_, EPOLL_CTL_MOD, descriptor, &event) == 0;
}

EventLoop::TimerId EventLoop::addTimer(Clock::time_point time, QueueId queue, TimerWork work)
{
    const std::lock_guard lock(mutex_);
    const TimerId timer(time, ++lastTimer_);
    if (isShutDown_.load())
        return timer;
    const auto position = timers_.emplace(timer, Timer{queue, std::move(work)}).first;
    if (position == timers_.begin())
        wakeIfAsleep();
    return timer;
}

void EventLoop::removeTimer(const TimerId& timer)
{
    Timer removed;
    const std::lock_guard lock(mutex_);
    if (const auto found = timers_.find(timer); found != timers_.end()) {
        removed = std::move(found->second);
        timers_.erase(found);
    }
}

void EventLoop::runDueTimers()
{
    std::optional<Clock::time_point> now;
    while (!isStopped_.load()) {
        Timer due;
        {
            const std::lock_guard lock(mutex_);
            if (timers_.empty())
                return;
            if (!now)
                now = Clock::now();
            if (timers_.begin()->first.first > *now)
                return;
            due = std::move(timers_.begin()->second);
            timers_.erase(timers_.begin());
        }
        runAs(due.queue, std::move(due.work));
    }
}

void EventLoop::destroyPending()
{
    // Everything is moved out of the members before any of it is destroyed: destroying one closure
    // may cancel another.
    std::vector<Task> posted;
    std::vector<Task> taken;
    std::vector<FdWatcher::Handler> waits;
    std::map<TimerId, Timer> timers;
    {
        const std::lock_guard lock(mutex_);
        isShutDown_.store(true);
        posted.swap(posted_);
        timers.swap(timers_);
    }
    taken.swap(taken_);
    next_ = 0;
    for (const auto& [watcher, uses] : watchers_) {
        if (watcher == nullptr)
            continue;
        for (auto* handler : {&watcher->reader_, &watcher->writer_, &watcher->failureHandler_})
            waits.push_back(handler->take());
    }
    timers.clear();
}

} // namespace quillbox
