#include "platform/tcp/tcp_connection.h"

#include <algorithm>
#include <utility>

namespace quillbox {

namespace {

/// Fewer bytes are cheaper to copy than to move through a pipe.
constexpr std::size_t kLeastForPipe = 64UL * 1024;

} // namespace

/// The reference of a pending wait or posted read to its connection. If it is destroyed without
/// being called, as at the shutdown of the pool, it drops the pending operations of the connection.
/// This breaks a reference cycle: completions usually own the connection that stores them.
class TcpConnection::Waiting final {
public:
    explicit Waiting(std::shared_ptr<TcpConnection> connection) : connection_(std::move(connection))
    {
    }
    ~Waiting()
    {
        if (connection_)
            connection_->dropPending();
    }

    Waiting(Waiting&&) noexcept = default;
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;
    Waiting& operator=(Waiting&&) = delete;

    /// Called when the wait is over, or when the posted read runs.
    std::shared_ptr<TcpConnection> end() { return std::move(connection_); }

private:
    std::shared_ptr<TcpConnection> connection_;
};

TcpConnection::TcpConnection(std::shared_ptr<TcpContext> context, AcceptedSocket accepted)
    : context_(std::move(context)), accepted_(std::move(accepted))
{
}

TcpConnection::TcpConnection(std::shared_ptr<TcpContext> context, std::shared_ptr<Dialler> dialler,
                             std::weak_ptr<TcpConnection> client)
    : context_(std::move(context)),
      isDialled_(true),
      dialler_(std::move(dialler)),
      client_(std::move(client))
{
}

void TcpConnection::open()
{
    if (!isDialled_) {
        std::error_code error;
        auto socket = FdWatcher::adopt(queue(), accepted_.socket.release(), FdWatcher::For::Reading,
                                       error, std::move(accepted_.place));
        if (socket)
            beReady(std::move(socket));
        else
            report(State::Failed, error);
        return;
    }
    report(State::Preparing, {});
    const auto reportAs = [this](State state) {
        return [weak = weak_from_this(), state](std::error_code error) {
            if (const auto self = weak.lock())
                self->report(state, error);
        };
    };
    dialler_->start(queue(), {.waiting = reportAs(State::Waiting),
                              .connected =
                                  [weak = weak_from_this()](std::unique_ptr<FdWatcher> socket) {
                                      if (const auto self = weak.lock())
                                          self->beReady(std::move(socket));
                                  },
                              .failed = reportAs(State::Failed)});
}

void TcpConnection::beReady(std::unique_ptr<FdWatcher> socket)
{
    dialler_.reset();
    socket_ = std::move(socket);
    peerWatch_.emplace(queue(), socket_->descriptor(), [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self || !self->socket_)
            return;
        self->noteFailure(std::make_error_code(std::errc::timed_out));
        giveUp(self->socket_->descriptor());
    });
    peerWatch_->watch();
    report(State::Ready, {});
    socket_->waitForFailure([weak = weak_from_this()](const std::error_code&) {
        const auto self = weak.lock();
        if (!self || !self->socket_)
            return;
        // The error itself stays in the socket for the next read or write.
        self->noteFailure({});
        self->settleFailure();
    });
}

void TcpConnection::receive(std::size_t minimum, std::size_t maximum, ReceiveCompletion completion)
{
    if (const auto error = refusal(receive_.has_value())) {
        queue()->post(
            [completion = std::move(completion), error] { completion(Content(), false, error); });
        return;
    }
    maximum = std::clamp<std::size_t>(maximum, 1, kMaximumContentSize);
    minimum = std::clamp<std::size_t>(minimum, 1, maximum);
    receive_ = Receive{minimum, maximum, std::move(completion), nullptr, nullptr};
    hasRead_ = true;
    if (std::exchange(isDrained_, false)) {
        waitToReceive();
        return;
    }
    // The read itself is posted, not just its completion. Otherwise all busy connections would fill
    // a buffer each before the first one sends; so they take turns with one, which stays in the
    // processor's cache.
    queue()->post([waiting = Waiting(shared_from_this())]() mutable {
        const auto self = waiting.end();
        self->tryReceive();
    });
}

void TcpConnection::tryReceive()
{
    if (!receive_ || !socket_)
        return;
    if (hasEnded_) {
        endReceive(true, {});
        return;
    }
    while (receive_->chunk || beginChunk()) {
        auto& chunk = *receive_->chunk;
        auto room = chunk.room();
        room = room.first(std::min(room.size(), receive_->maximum - chunk.size()));
        const auto received = receiveSome(socket_->descriptor(), room);
        chunk.grow(received.count);
        if (received.count == 0) {
            handleShortfall(received);
            return;
        }
        isDrained_ = received.count < room.size();
        if (chunk.size() >= receive_->minimum) {
            endReceive(false, {});
            return;
        }
    }
}

/// Borrows a buffer for the available data. Returns false if a pipe took the data instead, which
/// ends the receive. The amount of available data is queried only if the last receive filled its
/// buffer: for small messages this system call would be a third of the work.
bool TcpConnection::beginChunk()
{
    // If bursts are large, little is read first: while that is sent, the rest arrives, and is then
    // moved through a pipe without a copy. A small burst fits into one read.
    auto wanted = wasLastBurstLarge_ ? ChunkPool::kSmallSize : ChunkPool::kMiddleSize;
    if (std::exchange(isFlowing_, false)) {
        const auto available = unreadBytes(socket_->descriptor());
        // Only if any number of bytes suffices: a pipe that contains data may already be full.
        if (available >= kLeastForPipe && receive_->minimum == 1 && receiveThroughPipe())
            return false;
        wanted = std::max(wanted, available);
    }
    receive_->chunk =
        context_->chunks->borrow(receive_->minimum, std::min(wanted, receive_->maximum));
    return true;
}

/// Returns whether bytes were moved into a pipe. If not, a read is needed to find out why: urgent
/// data (RFC 6093) cannot be spliced, and splice(2) reports it like an empty socket or the end of
/// the stream.
bool TcpConnection::receiveThroughPipe()
{
    auto chunk = context_->pipes->borrow();
    if (!chunk)
        return false;
    const auto moved = chunk->fill(socket_->descriptor(), receive_->maximum);
    if (isSpliceRefused(moved))
        context_->pipes->giveUp();
    else if (moved.error && !moved.wouldBlock())
        noteFailure(moved.error);
    if (moved.count == 0)
        return false;
    receive_->piped = std::move(chunk);
    endReceive(false, {});
    return true;
}

/// Handles a read without data: waits, or ends the receive.
void TcpConnection::handleShortfall(const Transfer& transfer)
{
    if (transfer.wouldBlock()) {
        waitToReceive();
        return;
    }
    if (transfer.error)
        noteFailure(transfer.error);
    // After it has reported an error, the kernel reports the end of the stream, which is wrong.
    hasEnded_ = !error_;
    endReceive(hasEnded_, error_);
}

void TcpConnection::waitToReceive()
{
    // An idle connection does not occupy a buffer.
    if (receive_->chunk && receive_->chunk->size() == 0)
        receive_->chunk.reset();
    if (receivedSinceWait_ > 0)
        wasLastBurstLarge_ = std::exchange(receivedSinceWait_, 0) > ChunkPool::kMiddleSize;
    socket_->waitReadable(
        [waiting = Waiting(shared_from_this())](const std::error_code& error) mutable {
            const auto self = waiting.end();
            if (!error)
                self->tryReceive();
        });
}

void TcpConnection::endReceive(bool isComplete, std::error_code error, Delivery delivery)
{
    auto receive = std::move(*receive_);
    receive_.reset();
    isFlowing_ = receive.piped || (receive.chunk && receive.chunk->room().empty());
    Content content;
    if (receive.piped)
        content = Content(std::move(receive.piped));
    else if (receive.chunk && receive.chunk->size() > 0)
        content = Content(std::move(receive.chunk));
    hasReceived_ = hasReceived_ || !content.isEmpty();
    receivedSinceWait_ += content.size();
    accepted_.session.noteReceived(content.size());
    deliver(delivery,
            [completion = std::move(receive.completion), content = std::move(content), isComplete,
             error]() mutable { completion(std::move(content), isComplete, error); });
}

void TcpConnection::send(Content content, SendCompletion completion)
{
    PendingSend unsent(std::move(content));
    auto error = refusal(send_.has_value());
    if (!error && !unsent.isSendable())
        error = std::make_error_code(std::errc::invalid_argument);
    if (error) {
        queue()->post([completion = std::move(completion), error] { completion(error); });
        return;
    }
    send_ = Send{std::move(unsent), std::move(completion)};
    trySend(Delivery::Posted);
}

void TcpConnection::trySend(Delivery delivery)
{
    if (!send_ || !socket_)
        return;
    auto& unsent = send_->unsent;
    while (!unsent.isNothing()) {
        const auto sent = unsent.sendSome(socket_->descriptor(), *context_->chunks);
        hasSent_ = hasSent_ || sent.count > 0;
        peerWatch_->watch();
        queue()->loop().noteMoved(sent.count);
        accepted_.session.noteSent(sent.count);
        if (sent.wouldBlock()) {
            socket_->waitWritable(
                [waiting = Waiting(shared_from_this())](const std::error_code& error) mutable {
                    const auto self = waiting.end();
                    if (!error)
                        self->trySend(Delivery::Direct);
                });
            return;
        }
        if (sent.error) {
            noteFailure(sent.error);
            endSend(hasMoreToRead() ? std::error_code() : error_, delivery);
            return;
        }
    }
    endSend({}, delivery);
}

void TcpConnection::endSend(std::error_code error, Delivery delivery)
{
    // Releases the content before the completion runs, which may receive the next one.
    auto completion = std::move(send_->completion);
    send_.reset();
    deliver(delivery, [completion = std::move(completion), error] { completion(error); });
}

void TcpConnection::dropPending()
{
    // Moved out first: destroying them may drop the last reference to the connection.
    const auto receive = std::exchange(receive_, std::nullopt);
    const auto send = std::exchange(send_, std::nullopt);
}

std::error_code TcpConnection::refusal(bool isBusy) const
{
    if (isCancelled())
        return std::make_error_code(std::errc::operation_canceled);
    if (!socket_)
        return std::make_error_code(std::errc::not_connected);
    return isBusy ? std::make_error_code(std::errc::operation_in_progress) : std::error_code();
}

template <typename Work> void TcpConnection::deliver(Delivery delivery, Work work)
{
    if (delivery == Delivery::Posted) {
        queue()->post(std::move(work));
        settleFailure();
        return;
    }
    settleFailure();
    work();
}

void TcpConnection::noteFailure(std::error_code error)
{
    hasFailed_ = true;
    if (!error_)
        error_ = error;
}

/// Reports the failure once there is no pending operation to report it and no data left to read.
void TcpConnection::settleFailure()
{
    if (!hasFailed_ || hasToldFailure_ || !socket_ || receive_ || send_ || hasMoreToRead())
        return;
    hasToldFailure_ = true;
    if (!error_)
        error_ = takeSocketError(socket_->descriptor());
    if (!error_)
        error_ = std::make_error_code(std::errc::connection_reset);
    // Posted, so that it is not reported once the connection is cancelled.
    queue()->post(
        [self = shared_from_this(), error = error_] { self->report(State::Failed, error); });
}

bool TcpConnection::hasMoreToRead()
{
    return hasRead_ && unreadBytes(socket_->descriptor()) > 0;
}

void TcpConnection::close()
{
    accepted_.socket.reset();
    accepted_.place.reset();
    if (dialler_)
        dialler_->stop();
    if (!socket_) {
        accepted_.session.end();
        return;
    }
    socket_->cancelWaits();
    peerWatch_.reset();
    auto unsent = send_ ? std::move(send_->unsent) : PendingSend();
    const auto cancelled = refusal(false);
    if (receive_)
        endReceive(false, cancelled, Delivery::Posted);
    if (send_)
        endSend(cancelled, Delivery::Posted);
    accepted_.session.end();
    // After the end of the peer's stream there is no unread input that could cause a reset.
    closeGently(queue(), context_->chunks, std::move(socket_), std::move(unsent),
                hasSent_ && !hasEnded_, ending());
}

/// See `TcpParameters::client`.
Ending TcpConnection::ending() const
{
    if (!isDialled_)
        return Ending::EndOfStream;
    const auto client = client_.lock();
    const bool wasReset = client && client->error_ == std::errc::connection_reset;
    const bool wasUsed = hasSent_ || hasReceived_ || hasEnded_;
    return wasReset || !wasUsed ? Ending::Reset : Ending::EndOfStream;
}

} // namespace quillbox
