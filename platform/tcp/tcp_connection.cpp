#include "platform/tcp/tcp_connection.h"

#include "platform/tcp/connector.h"
#include "platform/tcp/socket_calls.h"
#include "platform/tcp/tcp_stream.h"

#include <cassert>
#include <optional>
#include <utility>

namespace quillbox {

namespace {

/// The implementation of a connection, used on its queue. Pending work keeps it alive. It has no
/// reference to its owner except through the owner's handlers.
class ConnectionCore final : public std::enable_shared_from_this<ConnectionCore> {
public:
    ConnectionCore(std::shared_ptr<TcpContext> context, std::unique_ptr<Socket> accepted,
                   SocketAddress peer, std::unique_ptr<CountedSession> session)
        : context_(std::move(context)),
          accepted_(std::move(accepted)),
          peer_(std::move(peer)),
          session_(std::move(session))
    {
    }

    ConnectionCore(std::shared_ptr<TcpContext> context, const Endpoint& endpoint,
                   const std::shared_ptr<ConnectionCore>& client)
        : context_(std::move(context)), endpoint_(endpoint), client_(client)
    {
    }

    void setStateUpdateHandler(Connection::StateUpdateHandler handler)
    {
        handler_ = std::move(handler);
    }

    void start(std::shared_ptr<DispatchQueue> queue)
    {
        assert(queue_ == nullptr);
        queue_ = std::move(queue);
        if (isCancelled_)
            reportCancelled();
        else if (accepted_)
            beReady(std::move(accepted_));
        else
            connect();
    }

    void receive(std::size_t minimum, std::size_t maximum, Connection::ReceiveCompletion completion)
    {
        if (stream_)
            stream_->receive(minimum, maximum, std::move(completion));
        else
            post([completion = std::move(completion), error = refusal()] {
                completion(Content(), false, error);
            });
    }

    void send(Content content, Connection::SendCompletion completion)
    {
        if (stream_)
            stream_->send(std::move(content), std::move(completion));
        else
            post([completion = std::move(completion), error = refusal()] { completion(error); });
    }

    void cancel()
    {
        if (std::exchange(isCancelled_, true))
            return;
        close();
        if (queue_)
            reportCancelled();
    }

    /// Called on any thread when the owner is destroyed.
    void abandon()
    {
        if (!queue_) {
            close();
            return;
        }
        post([self = shared_from_this()] {
            self->handler_ = nullptr;
            self->isCancelled_ = true;
            self->close();
        });
    }

private:
    template <typename Work> void post(Work work)
    {
        assert(queue_ != nullptr);
        strandOf(*queue_).post(std::move(work));
    }

    void report(Connection::State state, std::error_code error)
    {
        post([self = shared_from_this(), state, error] {
            if (self->handler_)
                self->handler_(state, error);
        });
    }

    void reportCancelled()
    {
        post([self = shared_from_this()] {
            if (const auto handler = std::exchange(self->handler_, nullptr))
                handler(Connection::State::Cancelled, {});
        });
    }

    void beReady(std::unique_ptr<Socket> socket)
    {
        connector_.reset();
        stream_ = std::make_shared<TcpStream>(context_, strandOf(*queue_), std::move(socket),
                                              std::move(session_));
        report(Connection::State::Ready, {});
        stream_->open([weak = weak_from_this()](std::error_code error) {
            if (const auto self = weak.lock())
                self->report(Connection::State::Failed, error);
        });
    }

    void connect()
    {
        report(Connection::State::Preparing, {});
        const auto client = client_.lock();
        connector_ = std::make_shared<Connector>(
            context_, queue_, *endpoint_, client ? client->peer_ : SocketAddress(),
            Connector::Handlers{.waiting =
                                    [weak = weak_from_this()](std::error_code error) {
                                        if (const auto self = weak.lock())
                                            self->report(Connection::State::Waiting, error);
                                    },
                                .connected =
                                    [weak = weak_from_this()](std::unique_ptr<Socket> socket) {
                                        if (const auto self = weak.lock())
                                            self->beReady(std::move(socket));
                                    },
                                .failed =
                                    [weak = weak_from_this()](std::error_code error) {
                                        if (const auto self = weak.lock())
                                            self->report(Connection::State::Failed, error);
                                    }});
        connector_->start();
    }

    /// Keeps the stream, which completes later calls with an error.
    void close()
    {
        accepted_.reset();
        session_.reset();
        if (connector_)
            connector_->stop();
        if (stream_)
            stream_->close(ending());
    }

    /// See `TcpParameters::client`.
    Ending ending() const
    {
        if (!endpoint_)
            return Ending::EndOfStream;
        const auto client = client_.lock();
        const bool wasReset = client && client->stream_ && client->stream_->wasReset();
        return wasReset || !stream_->wasUsed() ? Ending::Reset : Ending::EndOfStream;
    }

    std::error_code refusal() const
    {
        return std::make_error_code(isCancelled_ ? std::errc::operation_canceled
                                                 : std::errc::not_connected);
    }

    const std::shared_ptr<TcpContext> context_;
    std::unique_ptr<Socket> accepted_;        ///< of an accepted connection, until `start`
    const SocketAddress peer_;                ///< of an accepted connection
    std::unique_ptr<CountedSession> session_; ///< of an accepted connection, until `start`
    const std::optional<Endpoint> endpoint_;  ///< none for an accepted connection
    const std::weak_ptr<ConnectionCore> client_;
    std::shared_ptr<DispatchQueue> queue_;
    Connection::StateUpdateHandler handler_;
    std::shared_ptr<Connector> connector_;
    std::shared_ptr<TcpStream> stream_;
    bool isCancelled_ = false;
};

class TcpConnection final : public Connection {
public:
    explicit TcpConnection(std::shared_ptr<ConnectionCore> core) : core_(std::move(core)) {}
    ~TcpConnection() override { core_->abandon(); }

    TcpConnection(const TcpConnection&) = delete;
    TcpConnection& operator=(const TcpConnection&) = delete;

    void setStateUpdateHandler(StateUpdateHandler handler) override
    {
        core_->setStateUpdateHandler(std::move(handler));
    }

    void start(std::shared_ptr<DispatchQueue> queue) override { core_->start(std::move(queue)); }

    void receive(std::size_t minimum, std::size_t maximum, ReceiveCompletion completion) override
    {
        core_->receive(minimum, maximum, std::move(completion));
    }

    void send(Content content, SendCompletion completion) override
    {
        core_->send(std::move(content), std::move(completion));
    }

    void cancel() override { core_->cancel(); }

    const std::shared_ptr<ConnectionCore>& core() const { return core_; }

private:
    const std::shared_ptr<ConnectionCore> core_;
};

} // namespace

std::shared_ptr<Connection> makeAcceptedConnection(std::shared_ptr<TcpContext> context,
                                                   std::unique_ptr<Socket> socket,
                                                   SocketAddress client,
                                                   std::unique_ptr<CountedSession> session)
{
    return std::make_shared<TcpConnection>(std::make_shared<ConnectionCore>(
        std::move(context), std::move(socket), std::move(client), std::move(session)));
}

std::shared_ptr<Connection> makeOutgoingConnection(std::shared_ptr<TcpContext> context,
                                                   const Endpoint& endpoint,
                                                   const std::weak_ptr<Connection>& client)
{
    const auto accepted = std::dynamic_pointer_cast<TcpConnection>(client.lock());
    return std::make_shared<TcpConnection>(std::make_shared<ConnectionCore>(
        std::move(context), endpoint, accepted ? accepted->core() : nullptr));
}

} // namespace quillbox
