#include "platform/desktop/process/main_queue.h"

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <deque>
#include <map>
#include <mutex>
#include <utility>

namespace quillbox {

namespace {

using Clock = std::chrono::steady_clock;
using Work = DispatchQueue::Work;

/// Longer delays take several timer runs: QTimer's interval is an int in milliseconds.
constexpr std::chrono::milliseconds kLongestTimer = std::chrono::hours(1);

/// State shared between the threads. It outlives the Loop as long as somebody holds the queue.
struct Shared {
    std::mutex mutex;
    QObject* loop = nullptr; ///< receives the wake-up events; null after shutdown
    bool isWakeUpPosted = false;
    std::deque<Work> pending;
    std::multimap<Clock::time_point, Work> delayed; ///< equal times stay in order
};

/// The caller holds the mutex.
void wakeUp(Shared& shared)
{
    if (std::exchange(shared.isWakeUpPosted, true))
        return;
    QCoreApplication::postEvent(shared.loop, new QEvent(QEvent::User));
}

class EventLoopQueue final : public DispatchQueue {
public:
    EventLoopQueue(std::shared_ptr<Shared> state, QThread* mainThread)
        : shared(std::move(state)), thread(mainThread)
    {
    }

    void async(Work work) override
    {
        const std::scoped_lock lock(shared->mutex);
        if (!shared->loop)
            return;
        shared->pending.push_back(std::move(work));
        wakeUp(*shared);
    }

    void asyncAfter(std::chrono::milliseconds delay, Work work) override
    {
        const auto due = Clock::now() + delay;
        const std::scoped_lock lock(shared->mutex);
        if (!shared->loop)
            return;
        shared->delayed.emplace(due, std::move(work));
        wakeUp(*shared);
    }

    bool isCurrent() const override { return QThread::currentThread() == thread; }
    const std::string& label() const override { return name; }
    QualityOfService qualityOfService() const override { return QualityOfService::Unspecified; }

private:
    const std::shared_ptr<Shared> shared;
    QThread* const thread;
    const std::string name = "main";
};

/// Runs the closures, on the main thread.
class Loop final : public QObject, public MainQueue {
public:
    Loop()
    {
        shared->loop = this;
        timer.setSingleShot(true);
        timer.setTimerType(Qt::PreciseTimer);
        timer.callOnTimeout(this, [this] { turn(); });
    }

    ~Loop() override
    {
        std::deque<Work> pending;
        std::multimap<Clock::time_point, Work> delayed;
        {
            const std::scoped_lock lock(shared->mutex);
            shared->loop = nullptr;
            pending.swap(shared->pending);
            delayed.swap(shared->delayed);
        }
        // Destroyed here, without the lock: a closure's destructor may submit another closure.
    }

    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    std::shared_ptr<DispatchQueue> queue() override { return handle; }

private:
    void customEvent(QEvent* /*event*/) override
    {
        {
            const std::scoped_lock lock(shared->mutex);
            shared->isWakeUpPosted = false;
        }
        turn();
    }

    /// Runs the first closure if it is due, and schedules the next wake-up.
    void turn()
    {
        if (isRunning)
            return;
        Work work = takeNext();
        if (work) {
            isRunning = true;
            work();
            work = nullptr;
            isRunning = false;
        }
        const std::scoped_lock lock(shared->mutex);
        if (!shared->pending.empty())
            wakeUp(*shared);
        else if (!shared->delayed.empty())
            timer.start(timeUntil(shared->delayed.begin()->first));
    }

    Work takeNext()
    {
        const std::scoped_lock lock(shared->mutex);
        const auto now = Clock::now();
        auto& delayed = shared->delayed;
        while (!delayed.empty() && delayed.begin()->first <= now)
            shared->pending.push_back(std::move(delayed.extract(delayed.begin()).mapped()));
        if (shared->pending.empty())
            return nullptr;
        Work work = std::move(shared->pending.front());
        shared->pending.pop_front();
        return work;
    }

    static std::chrono::milliseconds timeUntil(Clock::time_point due)
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
        return std::clamp(left, std::chrono::milliseconds(0), kLongestTimer);
    }

    const std::shared_ptr<Shared> shared = std::make_shared<Shared>();
    const std::shared_ptr<DispatchQueue> handle =
        std::make_shared<EventLoopQueue>(shared, thread());
    QTimer timer;
    bool isRunning = false;
};

} // namespace

std::unique_ptr<MainQueue> makeMainQueue()
{
    return std::make_unique<Loop>();
}

} // namespace quillbox
