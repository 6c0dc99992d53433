#pragma once

#include "platform/dispatch/pool_context.h"

#include <chrono>
#include <memory>
#include <utility>

namespace quillbox {

/// Runs work on a strand after a while. Used on that strand, where it can be taken back up to the
/// last moment; the end takes back what is pending.
class Timer final {
public:
    explicit Timer(std::shared_ptr<PoolContext> context) : context_(std::move(context)) {}
    ~Timer() { cancel(); }

    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    /// Takes the place of what is pending.
    template <typename Function>
    void start(const Strand& strand, std::chrono::milliseconds delay, Function function)
    {
        cancel();
        alarm_ = context_->setAlarm(PoolContext::Clock::now() + delay, strand,
                                    Work(std::move(function)));
    }

    /// Destroys what is pending without running it.
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
