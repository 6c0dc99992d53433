#pragma once

#include "platform/dispatch/strand_queue.h"
#include "platform/dispatch/watch.h"
#include "platform/tcp/socket_ledger.h"

#include <memory>
#include <utility>

namespace quillbox {

/// A socket that the pool watches, waited for as `Watch` has it; closed when it is destroyed. Used
/// on one strand at a time.
class Socket final {
public:
    /// Takes the descriptor over, and closes it where it cannot be watched: then there is none. A
    /// socket of a connection is counted by `ledger`, a listener's has none.
    static std::unique_ptr<Socket> adopt(std::shared_ptr<PoolContext> context, int descriptor,
                                         std::shared_ptr<SocketLedger> ledger,
                                         Watch::For what = Watch::For::Reading);

    ~Socket();

    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    int descriptor() const { return watch_->descriptor(); }

    /// Calls `handler` with an error code on the strand once there is something to read, the end of
    /// the stream and an error included.
    template <typename Handler> void waitReadable(const Strand& strand, Handler handler)
    {
        watch_->waitReadable(strand, std::move(handler));
    }

    /// The same for room to write.
    template <typename Handler> void waitWritable(const Strand& strand, Handler handler)
    {
        watch_->waitWritable(strand, std::move(handler));
    }

    /// The same for a failure that comes while nobody reads from or writes to the socket: a peer's
    /// reset, a keep-alive that went unanswered, a connection that the administrator closed. The
    /// end of the stream is no failure.
    template <typename Handler> void waitForFailure(const Strand& strand, Handler handler)
    {
        watch_->waitForFailure(strand, std::move(handler));
    }

    /// Whether there was news of a failure: without it, a connection that can be written to is
    /// established, and nobody need ask for its error.
    bool hasFailed() const { return watch_->hasFailed(); }

    /// Ends all waits with an error; that for a failure without a word.
    void cancelWaits() { watch_->cancelWaits(); }

private:
    Socket(std::unique_ptr<Watch> watch, std::shared_ptr<SocketLedger> ledger);

    std::unique_ptr<Watch> watch_;
    const std::shared_ptr<SocketLedger> ledger_;
};

} // namespace quillbox
