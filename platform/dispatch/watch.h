#pragma once

#include "platform/dispatch/pool_context.h"

#include <memory>
#include <system_error>
#include <utility>

namespace quillbox {

/// A non-blocking file descriptor that a `PoolContext` watches; closed on destruction. Used on one
/// strand at a time.
///
/// Events are edge-triggered: wait only after a call has returned EAGAIN, since data that was there
/// before is not reported again. For reads, a short count is enough.
class Watch final {
public:
    enum class For { Reading, ReadingAndWriting };

    /// Takes ownership of the descriptor. If it cannot be watched, closes it, sets `error` and
    /// returns null.
    static std::unique_ptr<Watch> adopt(std::shared_ptr<PoolContext> context, int descriptor,
                                        For what, std::error_code& error);

    ~Watch();

    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    int descriptor() const { return descriptor_; }

    /// Calls `handler` with an error code on the strand once the descriptor is readable, which
    /// includes end of stream and errors. One wait at a time.
    template <typename Handler> void waitReadable(const Strand& strand, Handler handler)
    {
        waitForReading({strand, Closure<std::error_code>(std::move(handler))});
    }

    /// The same for buffer space to write.
    template <typename Handler> void waitWritable(const Strand& strand, Handler handler)
    {
        waitForWriting({strand, Closure<std::error_code>(std::move(handler))});
    }

    /// The same for a failure, which is reported even while nobody reads or writes, and immediately
    /// if it has already happened.
    template <typename Handler> void waitForFailure(const Strand& strand, Handler handler)
    {
        waitForFailing({strand, Closure<std::error_code>(std::move(handler))});
    }

    /// Whether epoll has reported an error, or that both directions have ended.
    bool hasFailed() const { return state_->hasFailed; }

    /// Ends waits for reading and writing with `operation_canceled`; a wait for failure ends
    /// without a call.
    void cancelWaits();

private:
    Watch(std::shared_ptr<PoolContext> context, int descriptor, For what,
          std::shared_ptr<WatchState> state);

    void waitForReading(Waiter waiter);
    void waitForWriting(Waiter waiter);
    void waitForFailing(Waiter waiter);

    const std::shared_ptr<PoolContext> context_;
    const int descriptor_;
    For what_;
    const std::shared_ptr<WatchState> state_;
};

} // namespace quillbox
