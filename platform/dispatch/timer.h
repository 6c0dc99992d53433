#pragma once

#include "platform/dispatch/loop_queue.h"

#include <chrono>
#include <memory>
#include <utility>

namespace quillbox {

/// Runs work on a queue after a delay. Used on that queue, where the work can be cancelled until it
/// starts; the destructor cancels it.
class Timer final {
public:
    /// The queue was made by a `DispatchPool`.
    explicit Timer(std::shared_ptr<DispatchQueue> queue) : queue_(LoopQueue::from(std::move(queue)))
    {
    }
    ~Timer() { cancel(); }

    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    /// Replaces pending work.
    template <typename Function> void start(std::chrono::milliseconds delay, Function function)
    {
        cancel();
        const auto work = std::make_shared<EventLoop::Work>(std::move(function));
        work_ = work;
        timer_ = queue_->loop().addTimer(EventLoop::Clock::now() + delay, queue_->id(),
                                         EventLoop::Work([work] {
                                             if (auto due = work->take())
                                                 due();
                                         }));
    }

    /// Destroys pending work without running it.
    void cancel()
    {
        if (const auto work = std::exchange(work_, {}).lock()) {
            queue_->loop().removeTimer(timer_);
            const auto dropped = work->take();
        }
    }

private:
    const std::shared_ptr<LoopQueue> queue_;
    EventLoop::TimerId timer_;
    std::weak_ptr<EventLoop::Work> work_; ///< the loop owns it until it runs
};

} // namespace quillbox
