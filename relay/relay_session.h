#pragma once

#include "platform/connection.h"

#include <functional>
#include <memory>

namespace quillbox {

/// Joins an accepted connection with one to the phone and copies bytes both ways until either side
/// ends; then both end. There is no half-close.
///
/// The owner holds the session, and nobody else does: handlers and completions refer to it weakly,
/// so that dropping it stops everything. It is dropped only after `finish`. All of it lives on the
/// queue given to `start`.
class RelaySession final : public std::enable_shared_from_this<RelaySession> {
public:
    /// Neither connection has been started.
    RelaySession(std::shared_ptr<Connection> accepted, std::shared_ptr<Connection> opened);

    RelaySession(const RelaySession&) = delete;
    RelaySession& operator=(const RelaySession&) = delete;

    /// Called once, when the session ends, on its queue; cleared then. It must not drop the session
    /// before it returns.
    std::function<void()> onEnd;

    /// Nothing is read from `incoming` before `outgoing` is ready; until then the network holds the
    /// file browser's bytes.
    void start(const std::shared_ptr<DispatchQueue>& queue);

    /// Cancels both connections and tells `onEnd`. Idempotent.
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
