#pragma once

#include "platform/connection.h"

#include <functional>
#include <memory>

namespace quillbox {

/// Joins an accepted connection with one to the phone and relays bytes both ways until either side
/// ends; then both end. There is no half-close.
///
/// Only the owner keeps the session alive: handlers and completions have weak references to it, so
/// destroying it stops relaying. It is destroyed only after `finish`. Used on the queue passed to
/// `start`.
class RelaySession final : public std::enable_shared_from_this<RelaySession> {
public:
    /// Neither connection has been started yet.
    RelaySession(std::shared_ptr<Connection> accepted, std::shared_ptr<Connection> opened);

    RelaySession(const RelaySession&) = delete;
    RelaySession& operator=(const RelaySession&) = delete;

    /// Called once on the queue when the session ends, then cleared. It must not destroy the
    /// session.
    std::function<void()> onEnd;

    /// Nothing is read from `incoming` before `outgoing` is ready; until then the file browser's
    /// bytes stay in the network buffers.
    void start(const std::shared_ptr<DispatchQueue>& queue);

    /// Cancels both connections and calls `onEnd`. Idempotent.
    void finish();

    bool isFinished() const { return finished; }

private:
    void pump(const std::shared_ptr<Connection>& source, const std::shared_ptr<Connection>& sink);
    void forward(const std::shared_ptr<Connection>& source, const std::shared_ptr<Connection>& sink,
                 Content content, bool isComplete);

    const std::shared_ptr<Connection> incoming;
    const std::shared_ptr<Connection> outgoing;
    bool finished = false;
};

} // namespace quillbox
