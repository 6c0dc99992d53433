#pragma once

#include "platform/dispatch/timer.h"
#include "platform/tcp/socket_calls.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

namespace quillbox {

/// Tells when the peer of a connection has acknowledged nothing for `kSilenceLimit`, and enables
/// keep-alive. The kernel alone repeats bytes for 15 minutes. Its TCP_USER_TIMEOUT also ends
/// connections to a peer that does not read, and comes too late where the peer's link-layer address
/// (ARP) can no longer be resolved. Used and destroyed on its queue.
class PeerWatch final {
public:
    /// `silent` is called on the queue, never inside a call to this object, which it may destroy.
    PeerWatch(const std::shared_ptr<LoopQueue>& queue, int socket, EventLoop::TimerWork silent)
        : socket_(socket), timer_(queue), silent_(std::move(silent))
    {
    }

    /// Checks the peer every `kPeerCheck` until it has acknowledged everything; does nothing while
    /// it does so already. To be called when the connection begins, and for every send. Even the
    /// first check comes later, because most connections end before keep-alive has anything to do,
    /// and enabling it takes four system calls.
    void watch()
    {
        if (std::exchange(isWatching_, true))
            return;
        since_ = EventLoop::Clock::now();
        checkIn(kPeerCheck);
    }

private:
    void checkIn(std::chrono::milliseconds delay)
    {
        timer_.start(delay, [this] { check(); });
    }

    void check()
    {
        keepAlive(socket_);
        // The last acknowledgement may be from before a long pause.
        const auto silence =
            std::min(unansweredFor(socket_), std::chrono::duration_cast<std::chrono::milliseconds>(
                                                 EventLoop::Clock::now() - since_));
        if (silence >= kSilenceLimit) {
            auto silent = std::move(silent_);
            silent();
            return;
        }
        isWatching_ = unacknowledgedBytes(socket_) > 0;
        if (isWatching_)
            checkIn(std::min(kPeerCheck, kSilenceLimit - silence));
    }

    const int socket_;
    Timer timer_;
    EventLoop::TimerWork silent_;
    bool isWatching_ = false;
    EventLoop::Clock::time_point since_;
};

} // namespace quillbox
