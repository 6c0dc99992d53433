#include "platform/desktop/process/main_queue.h"

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <deque>
#include <mutex>
#include <utility>

namespace quillbox {

namespace {

using Clock = std::chrono::steady_clock;

/// Its object of the event loop, on the main thread, runs the closures.
class EventLoopQueue final : public DispatchQueue,
                             public std::enable_shared_from_this<EventLoopQueue> {
public:
    explicit EventLoopQueue(QObject& mainLoop) : thread(mainLoop.thread()), loop(&mainLoop) {}

    void async(Work work) override
    {
        const std::scoped_lock lock(mutex);
        if (!loop)
            return;
        pending.push_back(std::move(work));
        wakeUp();
    }

    void asyncAfter(std::chrono::milliseconds delay, Work work) override
    {
        async([self = shared_from_this(), due = Clock::now() + delay,
               work = std::move(work)]() mutable {
            // Destroyed with the loop, and the closure with it.
            auto* timer = new QTimer(self->loop);
            timer->setSingleShot(true);
            timer->setTimerType(Qt::PreciseTimer);
            timer->callOnTimeout([self, timer, work = std::move(work)]() mutable {
                timer->deleteLater();
                self->async(std::move(work));
            });
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
            timer->start(std::max(left, std::chrono::milliseconds(0)));
        });
    }

    bool isCurrent() const override { return QThread::currentThread() == thread; }
    const std::string& label() const override { return name; }
    QualityOfService qualityOfService() const override { return QualityOfService::Unspecified; }

    /// Runs the first closure, unless one is running, and has the loop call this again if there are
    /// more.
    void turn()
    {
        Work work;
        {
            const std::scoped_lock lock(mutex);
            isWakeUpPosted = false;
            if (isRunning || pending.empty())
                return;
            work = std::move(pending.front());
            pending.pop_front();
        }
        isRunning = true;
        work();
        work = nullptr;
        isRunning = false;
        const std::scoped_lock lock(mutex);
        if (loop && !pending.empty())
            wakeUp();
    }

    void shutDown()
    {
        // Destroyed without the lock: a closure's destructor may submit another closure.
        std::deque<Work> rest;
        const std::scoped_lock lock(mutex);
        loop = nullptr;
        rest.swap(pending);
    }

private:
    /// The caller holds the mutex.
    void wakeUp()
    {
        if (!std::exchange(isWakeUpPosted, true))
            QCoreApplication::postEvent(loop, new QEvent(QEvent::User));
    }

    QThread* const thread;
    const std::string name = "main";
    std::mutex mutex;
    QObject* loop; ///< receives the wake-up events; null after shutdown
    bool isWakeUpPosted = false;
    bool isRunning = false; ///< used on the main thread only
    std::deque<Work> pending;
};

class Loop final : public QObject, public MainQueue {
public:
    Loop() = default;
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;
    ~Loop() override { handle->shutDown(); }

    std::shared_ptr<DispatchQueue> queue() override { return handle; }

private:
    void customEvent(QEvent* /*event*/) override { handle->turn(); }

    const std::shared_ptr<EventLoopQueue> handle = std::make_shared<EventLoopQueue>(*this);
};

} // namespace

std::unique_ptr<MainQueue> makeMainQueue()
{
    return std::make_unique<Loop>();
}

} // namespace quillbox
