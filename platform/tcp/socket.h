#pragma once

#include "platform/dispatch/strand_queue.h"
#include "platform/dispatch/watch.h"
#include "platform/tcp/socket_ledger.h"

#include <memory>
#include <optional>
#include <utility>

namespace quillbox {

/// A socket that the pool watches with the semantics of `Watch`; closed by the destructor. Used on
/// one strand at a time.
class Socket final {
public:
    /// Takes ownership of the file descriptor. If it cannot be watched, closes it and returns null.
    /// `place` counts the socket of a connection until it is closed; none for listeners.
    static std::unique_ptr<Socket> adopt(std::shared_ptr<PoolContext> context, int descriptor,
                                         std::optional<SocketLedger::Place> place,
                                         Watch::For what = Watch::For::Reading);

    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    int descriptor() const { return watch_->descriptor(); }

    /// Calls `handler` with an error code on the strand once the socket is readable, which includes
    /// the end of the stream and errors.
    template <typename Handler> void waitReadable(const Strand& strand, Handler handler)
    {
        watch_->waitReadable(strand, std::move(handler));
    }

    /// The same, once the socket is writable.
    template <typename Handler> void waitWritable(const Strand& strand, Handler handler)
    {
        watch_->waitWritable(strand, std::move(handler));
    }

    /// The same, once the connection fails, even if nothing is being read or written: a reset by
    /// the peer, a keep-alive timeout, a connection closed by the administrator. The end of the
    /// stream is not a failure.
    template <typename Handler> void waitForFailure(const Strand& strand, Handler handler)
    {
        watch_->waitForFailure(strand, std::move(handler));
    }

    /// Whether a failure event has occurred. If not, a connecting socket that is writable is
    /// connected, and SO_ERROR need not be read.
    bool hasFailed() const { return watch_->hasFailed(); }

    /// Ends the waits for reading and writing with an error. A wait for failure is dropped without
    /// a call.
    void cancelWaits() { watch_->cancelWaits(); }

private:
    Socket(std::optional<SocketLedger::Place> place, std::unique_ptr<Watch> watch);

    const std::optional<SocketLedger::Place> place_; ///< destroyed after `watch_` closes the socket
    const std::unique_ptr<Watch> watch_;
};

} // namespace quillbox
