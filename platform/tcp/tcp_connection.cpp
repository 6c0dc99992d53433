#include "platform/tcp/tcp_connection.h"

#include <utility>

namespace quillbox {

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

void TcpConnection::receive(std::size_t minimum, std::size_t maximum, ReceiveCompletion completion)
{
    if (stream_)
        stream_->receive(minimum, maximum, std::move(completion));
    else
        queue()->post([completion = std::move(completion), error = refusal()] {
            completion(Content(), false, error);
        });
}

void TcpConnection::send(Content content, SendCompletion completion)
{
    if (stream_)
        stream_->send(std::move(content), std::move(completion));
    else
        queue()->post(
            [completion = std::move(completion), error = refusal()] { completion(error); });
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
    stream_ = std::make_shared<TcpStream>(context_, queue(), std::move(socket),
                                          std::move(accepted_.session));
    report(State::Ready, {});
    stream_->open([weak = weak_from_this()](std::error_code error) {
        if (const auto self = weak.lock())
            self->report(State::Failed, error);
    });
}

/// Keeps the stream, which completes later calls with an error.
void TcpConnection::close()
{
    accepted_.socket.reset();
    accepted_.place.reset();
    accepted_.session.end();
    if (dialler_)
        dialler_->stop();
    if (stream_)
        stream_->close(ending());
}

/// See `TcpParameters::client`.
Ending TcpConnection::ending() const
{
    if (!isDialled_)
        return Ending::EndOfStream;
    const auto client = client_.lock();
    const bool wasReset = client && client->stream_ && client->stream_->wasReset();
    return wasReset || !stream_->wasUsed() ? Ending::Reset : Ending::EndOfStream;
}

std::error_code TcpConnection::refusal() const
{
    return std::make_error_code(isCancelled() ? std::errc::operation_canceled
                                              : std::errc::not_connected);
}

} // namespace quillbox
