#pragma once

#include "platform/connection.h"
#include "platform/dispatch/fd_watcher.h"
#include "platform/dispatch/loop_queue.h"
#include "platform/dispatch/timer.h"
#include "platform/tcp/chunk_pool.h"
#include "platform/tcp/lingering_close.h"
#include "platform/tcp/pending_send.h"
#include "platform/tcp/pipe_pool.h"
#include "platform/tcp/socket_calls.h"
#include "platform/tcp/tcp_context.h"
#include "platform/tcp/traffic_ledger.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <system_error>

namespace quillbox {

/// Reads and writes a connected socket: `receive` and `send` with the semantics of `Connection`,
/// and a report when the connection fails. Used on its queue. Pending operations keep the stream
/// alive until `close` ends them.
///
/// After a reset by the peer, data that arrived before it can still be read. Once `receive` has
/// been called, the failure is reported only after all of this data was read; data sent meanwhile
/// is dropped, as the network would do. If `receive` was never called, the failure is reported at
/// once.
class TcpStream final : public std::enable_shared_from_this<TcpStream> {
public:
    using FailureHandler = std::function<void(std::error_code)>;

    /// `session` counts the traffic until the stream is closed.
    TcpStream(std::shared_ptr<TcpContext> context, std::shared_ptr<LoopQueue> queue,
              std::unique_ptr<FdWatcher> socket, CountedSession session);

    TcpStream(const TcpStream&) = delete;
    TcpStream& operator=(const TcpStream&) = delete;

    /// Starts watching for failure. `failed` is called at most once, after the completions that get
    /// the error, and not after `close`.
    void open(FailureHandler failed);

    void receive(std::size_t minimum, std::size_t maximum,
                 Connection::ReceiveCompletion completion);
    void send(Content content, Connection::SendCompletion completion);

    /// Whether the peer has reset the connection, as far as a read, a write or the watch of `open`
    /// has found. Also after `close`.
    bool wasReset() const { return error_ == std::errc::connection_reset; }

    /// Whether a byte was sent or received, or the peer has ended its stream. Also after `close`.
    bool wasUsed() const { return hasSent_ || hasReceived_ || hasEnded_; }

    /// Completes pending operations with an error and closes the socket by `closeGently`.
    void close(Ending ending);

private:
    /// A completion never runs inside the `receive` or `send` that it was passed to: if the result
    /// is available there, it is posted. In the handler of a later event it is called directly,
    /// which saves going through the queue for each chunk.
    enum class Delivery { Posted, Direct };

    class Waiting;

    struct Receive {
        std::size_t minimum;
        std::size_t maximum;
        Connection::ReceiveCompletion completion;
        std::unique_ptr<PipedChunk> piped; ///< the received data, if it is in a pipe
        std::unique_ptr<Chunk> chunk;      ///< otherwise the buffer being filled
    };

    struct Send {
        PendingSend unsent;
        Connection::SendCompletion completion;
    };

    void dropPending();
    void tryReceive(Delivery delivery);
    bool beginChunk(Delivery delivery);
    bool receiveThroughPipe(Delivery delivery);
    void waitToReceive();
    void handleShortfall(const Transfer& transfer, Delivery delivery);
    void endReceive(bool isComplete, std::error_code error, Delivery delivery);
    void trySend(Delivery delivery);
    void endSend(std::error_code error, Delivery delivery);
    void watchPeer();
    void noteFailure(std::error_code error);
    void settleFailure();
    bool hasMoreToRead();
    std::error_code refusal(bool isBusy) const;
    template <typename Work> void deliver(Delivery delivery, Work work);

    const std::shared_ptr<TcpContext> context_;
    const std::shared_ptr<LoopQueue> queue_;
    std::unique_ptr<FdWatcher> socket_; ///< null after `close`
    CountedSession session_;
    FailureHandler failed_; ///< null after it was called and after `close`
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
    bool hasRead_ = false;   ///< `receive` was called
    bool hasSent_ = false;
    Timer peerTimer_;
    bool isWatchingPeer_ = false;
    bool hasReceived_ = false;
};

} // namespace quillbox
