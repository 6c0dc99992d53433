#pragma once

#include "platform/connection.h"
#include "platform/dispatch/closure.h"
#include "platform/dispatch/event_loop.h"
#include "platform/dispatch/fd_watcher.h"
#include "platform/posix/file_descriptor.h"
#include "platform/tcp/lingering_close.h"
#include "platform/tcp/peer_watch.h"
#include "platform/tcp/queue_object.h"
#include "platform/tcp/tcp_context.h"
#include "platform/values/socket_address.h"

#include <cstddef>
#include <memory>
#include <optional>
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
        Closure<24, std::error_code> waiting;
        /// At most one of these two is called, as the last handler.
        Closure<16, std::unique_ptr<FdWatcher>> connected;
        Closure<24, std::error_code> failed;
    };

    virtual ~Dialler() = default;

    /// Called once.
    virtual void start(std::shared_ptr<LoopQueue> queue, Handlers handlers) = 0;

    /// Ends all attempts; no handler is called afterwards. Idempotent.
    virtual void stop() = 0;
};

/// A connected socket, or one that is being connected.
///
/// After a reset by the peer, data that arrived before it can still be read. Once `receive` has
/// been called, the failure is reported only after all of this data was read; data sent meanwhile
/// is dropped, as the network would do. If `receive` was never called, the failure is reported at
/// once. It is reported after the completions that get the error.
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

    /// A completion never runs inside the call that it was passed to, nor inside `close`. What
    /// these complete is therefore posted; handlers of events complete directly, which saves going
    /// through the queue for each chunk.
    enum class Delivery { Posted, Direct };

    class Waiting;

    struct Receive {
        std::size_t minimum;
        std::size_t maximum;
        ReceiveCompletion completion;
        std::unique_ptr<PipedChunk> piped; ///< the received data, if it is in a pipe
        std::unique_ptr<Chunk> chunk;      ///< otherwise the buffer being filled
    };

    struct Send {
        PendingSend unsent;
        SendCompletion completion;
    };

    void open();
    void close();
    void beReady(std::unique_ptr<FdWatcher> socket);
    Ending ending() const;
    void dropPending();
    void tryReceive();
    bool beginChunk();
    bool receiveThroughPipe();
    void waitToReceive();
    void handleShortfall(const Transfer& transfer);
    void endReceive(bool isComplete, std::error_code error, Delivery delivery = Delivery::Direct);
    void trySend(Delivery delivery);
    void endSend(std::error_code error, Delivery delivery);
    void noteFailure(std::error_code error);
    void settleFailure();
    bool hasMoreToRead();
    std::error_code refusal(bool isBusy) const;
    template <typename Work> void deliver(Delivery delivery, Work work);

    const std::shared_ptr<TcpContext> context_;
    AcceptedSocket accepted_; ///< its socket until `open`
    const bool isDialled_ = false;
    std::shared_ptr<Dialler> dialler_; ///< until it has connected
    const std::weak_ptr<TcpConnection> client_;
    std::unique_ptr<FdWatcher> socket_;  ///< null before it is connected and after `close`
    std::optional<PeerWatch> peerWatch_; ///< as long as `socket_`
    std::optional<Receive> receive_;
    std::optional<Send> send_;
    std::error_code error_; ///< the first one: the kernel reports each error only once
    bool hasFailed_ = false;
    bool hasToldFailure_ = false;
    bool hasEnded_ = false; ///< the peer's stream has ended
    /// The last read returned less than requested, so the next one waits for an event first (the
    /// watch is edge-triggered). True initially: data that is already there causes an event.
    bool isDrained_ = true;
    bool isFlowing_ = false; ///< the last receive filled its buffer: much more may be available
    std::size_t receivedSinceWait_ = 0; ///< bytes since this connection last waited for data
    /// The last burst, which is all that came between two waits, did not fit into one read of
    /// `ChunkPool::kMiddleSize`.
    bool wasLastBurstLarge_ = false;
    bool hasRead_ = false; ///< `receive` was called
    bool hasReceived_ = false;
    bool hasSent_ = false;
};

} // namespace quillbox
