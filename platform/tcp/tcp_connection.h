#pragma once

#include "platform/connection.h"
#include "platform/dispatch/fd_watcher.h"
#include "platform/posix/file_descriptor.h"
#include "platform/tcp/queue_object.h"
#include "platform/tcp/tcp_context.h"
#include "platform/tcp/tcp_stream.h"
#include "platform/values/socket_address.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <system_error>

namespace quillbox {

/// A connection that was accepted; closed by its destructor. `session` counts it until then.
struct AcceptedSocket {
    SocketLedger::Place place; ///< given up after the socket is closed
    FileDescriptor socket;
    SocketAddress client;
    CountedSession session;
};

/// Opens the socket of an outgoing connection. Used on the queue that it is started on, where the
/// handlers are called as well, never inside a call to this object.
class Dialler {
public:
    struct Handlers {
        /// No address is reachable at present; called again only if the error changes.
        std::function<void(std::error_code)> waiting;
        /// At most one of these two is called, as the last handler.
        std::function<void(std::unique_ptr<FdWatcher>)> connected;
        std::function<void(std::error_code)> failed;
    };

    virtual ~Dialler() = default;

    /// Called once.
    virtual void start(std::shared_ptr<LoopQueue> queue, Handlers handlers) = 0;

    /// Ends all attempts; no handler is called afterwards. Idempotent.
    virtual void stop() = 0;
};

class TcpConnection final : public QueueObject<TcpConnection, Connection> {
public:
    /// An accepted connection, ready as soon as it is started.
    TcpConnection(std::shared_ptr<TcpContext> context, AcceptedSocket accepted);

    /// A connection that `dialler` opens when it is started. `client` as in `TcpParameters`, an
    /// accepted connection that is started on the same queue.
    TcpConnection(std::shared_ptr<TcpContext> context, std::shared_ptr<Dialler> dialler,
                  std::weak_ptr<TcpConnection> client);

    void receive(std::size_t minimum, std::size_t maximum, ReceiveCompletion completion) override;
    void send(Content content, SendCompletion completion) override;

    /// The client's address if it was accepted, otherwise empty.
    const SocketAddress& peer() const { return accepted_.client; }

private:
    friend class QueueObject<TcpConnection, Connection>;

    void open();
    void close();
    void beReady(std::unique_ptr<FdWatcher> socket);
    Ending ending() const;
    std::error_code refusal() const;

    const std::shared_ptr<TcpContext> context_;
    AcceptedSocket accepted_; ///< its socket until `open`
    const bool isDialled_ = false;
    std::shared_ptr<Dialler> dialler_; ///< until it has connected
    const std::weak_ptr<TcpConnection> client_;
    std::shared_ptr<TcpStream> stream_;
};

} // namespace quillbox
