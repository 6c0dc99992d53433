#include "platform/dispatch/pool_context.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace quillbox {

namespace {

/// How many times in a row the loop runs closures that were posted by closures, before it calls
/// epoll_wait again.
constexpr int kMostRounds = 8;

constexpr std::uint32_t kFailure = EPOLLHUP | EPOLLERR;

/// End of stream takes a read of its own after the data, even after a short read.
constexpr std::uint32_t kEnd = EPOLLRDHUP | kFailure;

constexpr std::uint32_t kAlwaysAskedFor = EPOLLRDHUP | EPOLLPRI | EPOLLET;

/// How many short reads it can take to drain the socket. A read stops at the urgent mark (RFC
/// 6093), so urgent data adds one, and the end of the stream adds another; edge-triggered epoll
/// reports neither again.
int readsFor(std::uint32_t events)
{
    return 1 + ((events & EPOLLPRI) != 0 ? 1 : 0) + ((events & kEnd) != 0 ? 1 : 0);
}

int require(int descriptor)
{
    if (descriptor < 0)
        throw std::system_error(errno, std::system_category());
    return descriptor;
}

void tell(std::optional<Waiter>& waiting)
{
    if (!waiting)
        return;
    auto waiter = std::move(*waiting);
    waiting.reset();
    waiter.strand.dispatch(
        [handler = std::move(waiter.handler)]() mutable { handler(std::error_code()); });
}

} // namespace

PoolContext::PoolContext()
    : epoll_(require(::epoll_create1(EPOLL_CLOEXEC))),
      wakeUp_(require(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)))
{
    epoll_event event{.events = EPOLLIN | EPOLLET, .data = {.u64 = 0}};
    require(::epoll_ctl(epoll_, EPOLL_CTL_ADD, wakeUp_, &event));
}

PoolContext::~PoolContext()
{
    ::close(wakeUp_);
    ::close(epoll_);
}

void PoolContext::runHere()
{
    thread_.store(std::this_thread::get_id());
    while (!isStopped_.load()) {
        runPosted();
        takeEvents(posted_.empty() ? untilNextAlarm() : 0);
        ringAlarms();
    }
    thread_.store({});
}

void PoolContext::stop()
{
    isStopped_.store(true);
    wake();
}

void PoolContext::wake()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(wakeUp_, &one, sizeof one);
}

void PoolContext::post(Work work)
{
    if (isThread()) {
        posted_.push_back(std::move(work));
        return;
    }
    // Declared before the lock and so destroyed after unlocking: its destructor may post more work.
    Work dropped;
    const std::lock_guard lock(mutex_);
    if (isShutDown_.load()) {
        dropped = std::move(work);
        return;
    }
    handedOver_.push_back(std::move(work));
    if (!std::exchange(isWoken_, true))
        wake();
}

void PoolContext::runPosted()
{
    // Bytes moved while handling events do not count against the closures that were postponed until
    // after those events.
    moved_ = 0;
    for (int round = 0; round < kMostRounds; ++round) {
        for (auto count = posted_.size(); count > 0; --count) {
            if (mustPause())
                return;
            Work work = std::move(posted_.front());
            posted_.pop_front();
            work();
        }
    }
}

void PoolContext::takeHandedOver()
{
    std::vector<Work> works;
    {
        const std::lock_guard lock(mutex_);
        isWoken_ = false;
        works.swap(handedOver_);
    }
    std::ranges::move(works, std::back_inserter(posted_));
}

void PoolContext::takeEvents(int timeout)
{
    moved_ = 0;
    std::array<epoll_event, 64> events;
    const int count = ::epoll_wait(epoll_, events.data(), events.size(), timeout);
    for (int index = 0; index < count && !isStopped_.load(); ++index) {
        const auto& event = events.at(static_cast<std::size_t>(index));
        if (event.data.u64 == 0)
            takeHandedOver();
        else
            takeEvent(event.data.u64, event.events);
    }
}

/// Every handler called here may destroy the watch or start another wait.
void PoolContext::takeEvent(std::uint64_t id, std::uint32_t events)
{
    std::shared_ptr<WatchState> state;
    {
        const std::lock_guard lock(mutex_);
        if (const auto found = watches_.find(id); found != watches_.end())
            state = found->second;
    }
    if (!state)
        return;
    const bool isFailure = (events & kFailure) != 0;
    state->hasFailed = state->hasFailed || isFailure;
    if ((events & (EPOLLIN | kEnd)) != 0) {
        state->readsDue = std::max(state->readsDue, readsFor(events) - (state->reader ? 1 : 0));
        tell(state->reader);
    }
    if ((events & EPOLLOUT) != 0 || isFailure)
        tell(state->writer);
    if (isFailure)
        tell(state->failureWatcher);
}

std::shared_ptr<WatchState> PoolContext::watch(int descriptor, std::uint32_t events)
{
    std::shared_ptr<WatchState> state;
    {
        const std::lock_guard lock(mutex_);
        state = std::make_shared<WatchState>(++lastWatch_);
        watches_.emplace(state->id, state);
    }
    epoll_event event{.events = events | kAlwaysAskedFor, .data = {.u64 = state->id}};
    if (::epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) == 0)
        return state;
    const int error = errno;
    forget(*state);
    errno = error;
    return nullptr;
}

bool PoolContext::changeWatch(const WatchState& state, int descriptor, std::uint32_t events)
{
    epoll_event event{.events = events | kAlwaysAskedFor, .data = {.u64 = state.id}};
    return ::epoll_ctl(epoll_, EPOLL_CTL_MOD, descriptor, &event) == 0;
}

void PoolContext::forget(const WatchState& state)
{
    std::shared_ptr<WatchState> dropped;
    const std::lock_guard lock(mutex_);
    if (const auto found = watches_.find(state.id); found != watches_.end()) {
        dropped = std::move(found->second);
        watches_.erase(found);
    }
}

std::shared_ptr<Alarm> PoolContext::setAlarm(Clock::time_point time, const Strand& strand,
                                             Work work)
{
    auto alarm = std::make_shared<Alarm>(strand, std::move(work));
    Work dropped;
    const std::lock_guard lock(mutex_);
    if (isShutDown_.load()) {
        dropped = alarm->work.take();
        return alarm;
    }
    alarm->position = alarms_.emplace(time, alarm);
    alarm->isQueued = true;
    const bool isFirst = alarm->position == alarms_.begin();
    if (isFirst && !isThread() && !std::exchange(isWoken_, true))
        wake();
    return alarm;
}

void PoolContext::cancelAlarm(const std::shared_ptr<Alarm>& alarm)
{
    const Work dropped = alarm->work.take();
    const std::lock_guard lock(mutex_);
    if (std::exchange(alarm->isQueued, false))
        alarms_.erase(alarm->position);
}

/// In milliseconds, rounded up; -1 when there is no alarm.
int PoolContext::untilNextAlarm()
{
    const std::lock_guard lock(mutex_);
    if (alarms_.empty())
        return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(alarms_.begin()->first - Clock::now());
    constexpr std::chrono::milliseconds kMost = std::chrono::hours(24);
    return static_cast<int>(std::clamp(left, std::chrono::milliseconds(0), kMost).count());
}

void PoolContext::ringAlarms()
{
    std::vector<std::shared_ptr<Alarm>> due;
    {
        const std::lock_guard lock(mutex_);
        if (alarms_.empty())
            return;
        const auto end = alarms_.upper_bound(Clock::now());
        for (auto each = alarms_.begin(); each != end; ++each) {
            each->second->isQueued = false;
            due.push_back(each->second);
        }
        alarms_.erase(alarms_.begin(), end);
    }
    for (const auto& alarm : due)
        alarm->strand.post([alarm] {
            if (auto work = alarm->work.take())
                work();
        });
}

void PoolContext::destroyPending()
{
    isShutDown_.store(true);
    std::deque<Work> posted;
    std::vector<Work> handedOver;
    Alarm::Queue alarms;
    std::unordered_map<std::uint64_t, std::shared_ptr<WatchState>> watches;
    std::vector<std::shared_ptr<Strand::State>> open;
    {
        const std::lock_guard lock(mutex_);
        posted.swap(posted_);
        handedOver.swap(handedOver_);
        alarms.swap(alarms_);
        watches.swap(watches_);
        for (const auto& [time, alarm] : alarms)
            alarm->isQueued = false;
        for (const auto& [address, weak] : strands_) {
            if (auto state = weak.lock())
                open.push_back(std::move(state));
        }
    }
    // Everything is moved out of the members before any of it is destroyed: destroying one closure
    // may cancel another.
    for (const auto& [time, alarm] : alarms)
        const Work dropped = alarm->work.take();
    for (const auto& [id, state] : watches) {
        for (auto* waiting : {&state->reader, &state->writer, &state->failureWatcher})
            const auto dropped = std::exchange(*waiting, std::nullopt);
    }
    for (const auto& state : open)
        state->close();
}

void PoolContext::add(const std::shared_ptr<Strand::State>& state)
{
    const std::lock_guard lock(mutex_);
    strands_.emplace(state.get(), state);
}

void PoolContext::remove(const Strand::State* state)
{
    const std::lock_guard lock(mutex_);
    strands_.erase(state);
}

} // namespace quillbox
