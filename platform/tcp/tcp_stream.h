#pragma once

#include "platform/connection.h"
#include "platform/tcp/chunk_pool.h"
#include "platform/tcp/pipe_pool.h"
#include "platform/tcp/socket.h"
#include "platform/tcp/socket_calls.h"
#include "platform/tcp/tcp_context.h"
#include "platform/tcp/traffic_ledger.h"
#include "platform/tcp/unsent.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <system_error>

namespace quillbox {

/// The bytes of one connected socket, both ways: `receive` and `send` as `Connection` promises
/// them, and the news that the connection has failed. All of it on one strand. Pending operations
/// keep the stream alive, until `close` ends them.
///
/// A peer's reset leaves readable what had arrived before it. A reader that has begun gets all of
/// that before it hears of the failure; what is sent meanwhile is dropped, as the network would. A
/// connection of which nothing was ever read fails at once.
class TcpStream final : public std::enable_shared_from_this<TcpStream> {
public:
    using FailureHandler = std::function<void(std::error_code)>;

    /// `session` counts what is carried until it is closed; none for what is not counted.
    TcpStream(std::shared_ptr<TcpContext> context, Strand strand, std::unique_ptr<Socket> socket,
              std::unique_ptr<CountedSession> session);

    TcpStream(const TcpStream&) = delete;
    TcpStream& operator=(const TcpStream&) = delete;

    /// Starts to watch for failure. `failed` is called at most once, after the completions that the
    /// failure ended, and not after `close`.
    void open(FailureHandler failed);

    void receive(std::size_t minimum, std::size_t maximum,
                 Connection::ReceiveCompletion completion);
    void send(Content content, Connection::SendCompletion completion);

    /// Ends what is pending with an error, and closes the socket gently.
    void close();

private:
    /// Completions never run inside the call that they were handed to, so that call has them
    /// posted; later they run where the event is, which saves a turn of the queue for each chunk.
    enum class Delivery { Posted, Direct };

    class Waiting;

    struct Receive {
        std::size_t minimum;
        std::size_t maximum;
        Connection::ReceiveCompletion completion;
        std::unique_ptr<PipedChunk> piped; ///< once a pipe took what arrived
        std::unique_ptr<Chunk> chunk;      ///< once something arrived, when that is not enough yet
    };

    struct Send {
        Unsent unsent;
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
    void noteFailure(std::error_code error);
    void settleFailure();
    bool hasMoreToRead();
    std::error_code refusal(bool isBusy) const;
    template <typename Work> void deliver(Delivery delivery, Work work);

    const std::shared_ptr<TcpContext> context_;
    const Strand strand_;
    std::unique_ptr<Socket> socket_; ///< none once it is closed
    std::unique_ptr<CountedSession>
        session_;           ///< none once it is closed, and for what is not counted
    FailureHandler failed_; ///< none once it was called, and once closed
    std::optional<Receive> receive_;
    std::optional<Send> send_;
    std::error_code error_; ///< the first one: the kernel tells each only once
    bool hasFailed_ = false;
    bool hasToldFailure_ = false;
    bool hasEnded_ = false; ///< the peer's side is over
    /// Nothing is left to read of what was there when the socket told its last news. At the
    /// beginning there may be something, but then that is news.
    bool isDrained_ = true;
    bool isFlowing_ = false; ///< the last receive filled what it had: there may be much more
    bool hasRead_ = false;   ///< a reader has begun
    bool hasSent_ = false;
};

} // namespace quillbox
