#include "platform/tcp/lingering_close.h"

#include "platform/dispatch/timer.h"
#include "platform/tcp/socket_calls.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace quillbox {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kDiscardLimit = 64UL * 1024 * 1024;
constexpr std::size_t kDiscardAtOnce = 1024UL * 1024;

/// The kernel has no event for the last acknowledgement, so it is polled with exponential backoff.
constexpr std::chrono::milliseconds kFirstLook{2};
constexpr std::chrono::milliseconds kLongestLook{500};

/// Kept alive by its pending waits.
class LingeringClose final : public std::enable_shared_from_this<LingeringClose> {
public:
    LingeringClose(std::shared_ptr<LoopQueue> queue, std::shared_ptr<ChunkPool> chunks,
                   std::unique_ptr<FdWatcher> socket, PendingSend unsent, Ending ending,
                   std::chrono::milliseconds patience)
        : queue_(std::move(queue)),
          chunks_(std::move(chunks)),
          timer_(queue_),
          socket_(std::move(socket)),
          unsent_(std::move(unsent)),
          ending_(ending),
          patience_(patience)
    {
    }

    void start()
    {
        queue_->post([self = shared_from_this()] {
            self->sendRest();
            self->discard();
            self->look();
        });
    }

private:
    void sendRest()
    {
        while (socket_ && !unsent_.isNothing()) {
            const auto sent = unsent_.sendSome(socket_->descriptor(), *chunks_);
            if (sent.wouldBlock()) {
                socket_->waitWritable([self = shared_from_this()](const std::error_code& error) {
                    if (!error)
                        self->sendRest();
                });
                return;
            }
            if (sent.error)
                finish();
        }
        if (!socket_)
            return;
        unsent_ = {};
        // A reset after the end of the stream would come too late to keep the local port usable.
        if (ending_ == Ending::EndOfStream)
            shutDownSending(socket_->descriptor());
    }

    void discard()
    {
        if (!socket_)
            return;
        const auto read = discardOnce();
        // After the end of the peer's stream no more input can come.
        if (read.isEnd())
            return;
        if ((read.error && !read.wouldBlock()) || discarded_ > kDiscardLimit) {
            finish();
            return;
        }
        if (!read.wouldBlock()) {
            queue_->post(std::bind_front(&LingeringClose::discard, shared_from_this()));
            return;
        }
        socket_->waitReadable([self = shared_from_this()](const std::error_code& error) {
            if (!error)
                self->discard();
        });
    }

    Transfer discardOnce()
    {
        const auto read = discardSome(socket_->descriptor(), kDiscardAtOnce);
        discarded_ += read.count;
        return read;
    }

    void look()
    {
        if (!socket_)
            return;
        const auto unacknowledged = unacknowledgedBytes(socket_->descriptor());
        const bool isDelivered = unsent_.isNothing() && unacknowledged == 0;
        if (isDelivered || isDead(socket_->descriptor())) {
            finish();
            return;
        }
        const auto now = Clock::now();
        const auto progress = std::pair(unsent_.left(), unacknowledged);
        if (std::exchange(lastProgress_, progress) != progress)
            deadline_ = now + patience_;
        if (now >= deadline_) {
            finish();
            return;
        }
        timer_.start(pause_, [self = shared_from_this()] { self->look(); });
        pause_ = std::min(pause_ * 2, kLongestLook);
    }

    /// Discards unread input first, because it would turn the close into a reset.
    void finish()
    {
        while (discarded_ <= kDiscardLimit && discardOnce().count > 0) {
        }
        timer_.cancel();
        unsent_ = {};
        if (ending_ == Ending::Reset)
            resetOnClose(socket_->descriptor());
        socket_.reset();
    }

    const std::shared_ptr<LoopQueue> queue_;
    const std::shared_ptr<ChunkPool> chunks_;
    Timer timer_;
    std::unique_ptr<FdWatcher> socket_;
    PendingSend unsent_;
    const Ending ending_;
    const std::chrono::milliseconds patience_;
    std::size_t discarded_ = 0;
    std::chrono::milliseconds pause_ = kFirstLook;
    std::pair<std::size_t, std::size_t> lastProgress_;
    Clock::time_point deadline_ = Clock::now() + patience_;
};

} // namespace

void closeGently(const std::shared_ptr<LoopQueue>& queue, const std::shared_ptr<ChunkPool>& chunks,
                 std::unique_ptr<FdWatcher> socket, PendingSend unsent, bool resetMatters,
                 Ending ending, std::chrono::milliseconds patience)
{
    const int descriptor = socket->descriptor();
    // After close(2) the kernel still delivers its send buffer, unless input causes a reset.
    const bool isSafe = unsent.isNothing() && !resetMatters;
    if (isSafe && ending == Ending::EndOfStream)
        return;
    const bool isDelivered = unsent.isNothing() && unacknowledgedBytes(descriptor) == 0;
    if (ending == Ending::Reset && isDelivered) {
        resetOnClose(descriptor);
        return;
    }
    if (isSafe || (isDelivered && unreadBytes(descriptor) == 0))
        return;
    if (queue->loop().isShutDown() || isDead(descriptor))
        return;
    auto closing = std::make_shared<LingeringClose>(queue, chunks, std::move(socket),
                                                    std::move(unsent), ending, patience);
    closing->start();
}

} // namespace quillbox
