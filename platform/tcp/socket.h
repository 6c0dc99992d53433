#pragma once

#include "platform/dispatch/strand_queue.h"
#include "platform/tcp/socket_ledger.h"

#include <memory>
#include <utility>

#include <asio/bind_executor.hpp>
#include <asio/posix/stream_descriptor.hpp>

namespace quillbox {

/// A socket that the pool watches; closed when it is destroyed. Used on one strand at a time.
///
/// To be waited for only after a call would have blocked: Asio arms the wait anew each time, and
/// one on a socket with unread bytes completes at once, over and over.
class Socket final {
public:
    /// Takes the descriptor over, and closes it where it cannot be watched: then there is none. A
    /// socket of a connection is counted by `ledger`, a listener's has none.
    static std::unique_ptr<Socket> adopt(std::shared_ptr<PoolContext> context, int descriptor,
                                         std::shared_ptr<SocketLedger> ledger);

    /// The same socket, for whoever is done waiting for room to write: Asio never stops asking the
    /// kernel for that, and is woken for it at each further wait. None where it cannot be watched.
    static std::unique_ptr<Socket> watchedAnew(std::unique_ptr<Socket> socket);

    ~Socket();

    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    int descriptor() { return descriptor_.native_handle(); }

    /// Calls `handler` with an error code on the strand once there is something to read, the end of
    /// the stream and an error included.
    template <typename Handler> void waitReadable(const Strand& strand, Handler handler)
    {
        descriptor_.async_wait(asio::posix::stream_descriptor::wait_read,
                               asio::bind_executor(strand, std::move(handler)));
    }

    /// The same for room to write.
    template <typename Handler> void waitWritable(const Strand& strand, Handler handler)
    {
        descriptor_.async_wait(asio::posix::stream_descriptor::wait_write,
                               asio::bind_executor(strand, std::move(handler)));
    }

    /// Ends all waits with an error.
    void cancelWaits();

private:
    Socket(std::shared_ptr<PoolContext> context, std::shared_ptr<SocketLedger> ledger);

    const std::shared_ptr<PoolContext> context_;
    const std::shared_ptr<SocketLedger> ledger_;
    asio::posix::stream_descriptor descriptor_;
};

} // namespace quillbox
