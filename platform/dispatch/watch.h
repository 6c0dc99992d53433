#pragma once

#include "platform/dispatch/pool_context.h"

#include <memory>
#include <system_error>
#include <utility>

namespace quillbox {

/// A non-blocking descriptor that a `PoolContext` watches; closed when it is destroyed. Used on one
/// strand at a time.
///
/// To be waited for only after a call has told that there is nothing more: what was there before is
/// no news. For reading, a count that is less than what there was room for tells that too.
class Watch final {
public:
    enum class For { Reading, ReadingAndWriting };

    /// Takes the descriptor over, and closes it where it cannot be watched: then there is none, and
    /// an error.
    static std::unique_ptr<Watch> adopt(std::shared_ptr<PoolContext> context, int descriptor,
                                        For what, std::error_code& error);

    ~Watch();

    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    int descriptor() const { return descriptor_; }

    /// Calls `handler` with an error code on the strand once there is something to read, the end of
    /// the stream and an error included. One wait at a time.
    template <typename Handler> void waitReadable(const Strand& strand, Handler handler)
    {
        waitForReading({strand, Closure<std::error_code>(std::move(handler))});
    }

    /// The same for room to write.
    template <typename Handler> void waitWritable(const Strand& strand, Handler handler)
    {
        waitForWriting({strand, Closure<std::error_code>(std::move(handler))});
    }

    /// The same for a failure, which is told while nobody reads or writes, too; at once when it has
    /// come already.
    template <typename Handler> void waitForFailure(const Strand& strand, Handler handler)
    {
        waitForFailing({strand, Closure<std::error_code>(std::move(handler))});
    }

    /// Whether there was news of a failure, or of both directions having ended.
    bool hasFailed() const { return state_->hasFailed; }

    /// Ends all waits with an error; that for a failure without a word.
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
