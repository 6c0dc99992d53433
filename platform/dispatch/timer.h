#pragma once

#include "platform/dispatch/pool_context.h"

#include <chrono>
#include <memory>
#include <utility>

namespace quillbox {

/// Runs work on a strand after a delay. Used on that strand, where the work can be cancelled until
/// it starts; the destructor cancels it.
class Timer final {
public:
    explicit Timer(std::shared_ptr<PoolContext> context) : context_(std::move(context)) {}
    ~Timer() { cancel(); }

    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    /// Replaces pending work.
    template <typename Function>
    void start(const Strand& strand, std::chrono::milliseconds delay, Function function)
    {
        cancel();
        alarm_ = context_->setAlarm(PoolContext::Clock::now() + delay, strand,
                                    Work(std::move(function)));
    }

    /// Destroys pending work without running it.
    void cancel()
    {
        if (const auto alarm = std::exchange(alarm_, nullptr))
            context_->cancelAlarm(alarm);
    }

private:
    const std::shared_ptr<PoolContext> context_;
    std::shared_ptr<Alarm> alarm_;
};

} // namespace quillbox
