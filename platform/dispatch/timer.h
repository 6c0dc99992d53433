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
    void start(std::chrono::milliseconds delay, EventLoop::TimerWork work)
    {
        cancel();
        timer_ =
            queue_->loop().addTimer(EventLoop::Clock::now() + delay, queue_->id(), std::move(work));
    }

    /// Destroys pending work without running it.
    void cancel() { queue_->loop().removeTimer(timer_); }

private:
    const std::shared_ptr<LoopQueue> queue_;
    EventLoop::TimerId timer_; ///< that of the latest start; may have run
};

} // namespace quillbox
