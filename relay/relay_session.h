#pragma once

#include "platform/connection.h"
#include "platform/log.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <system_error>

namespace quillbox {

/// Joins an accepted connection with one to the phone and relays bytes both ways until either side
/// ends; then both end. There is no half-close. Logs when the phone was connected, what the session
/// waits for, which side ended it and why, and what it carried.
///
/// Only the owner keeps the session alive: handlers and completions have weak references to it, so
/// destroying it stops relaying. It is destroyed only after `finish`. Used on the queue passed to
/// `start`.
class RelaySession final : public std::enable_shared_from_this<RelaySession> {
public:
    /// Neither connection has been started yet. `finderName` is that of the relay; the log outlives
    /// the session.
    RelaySession(std::shared_ptr<Connection> accepted, std::shared_ptr<Connection> opened,
                 Log& sessionLog, const std::string& finderName);

    RelaySession(const RelaySession&) = delete;
    RelaySession& operator=(const RelaySession&) = delete;

    /// Called once on the queue when the session ends, then cleared. It must not destroy the
    /// session.
    std::function<void()> onEnd;

    /// Nothing is read from `incoming` before `outgoing` is ready; until then the file browser's
    /// bytes stay in the network buffers.
    void start(const std::shared_ptr<DispatchQueue>& queue);

    /// Ends the session because the relay stops: cancels both connections and calls `onEnd`.
    /// Idempotent.
    void finish() { finish(nullptr, {}); }

    bool isFinished() const { return finished; }

private:
    /// A connection, and how many bytes came from it.
    struct Side {
        const std::shared_ptr<Connection> connection;
        const char* const name;
        std::uint64_t received = 0;
    };

    void pump(Side& source, Side& sink);
    void forward(Side& source, Side& sink, Content content, bool isComplete);
    void takeState(const Side& side, Connection::State state, std::error_code error);
    void finish(const Side* cause, std::error_code error);
    template <typename Text> void tell(Text&& text);

    Side incoming;
    Side outgoing;
    Log& log;
    const Log::Clock::time_point beginning;
    std::string label; ///< of the session's lines in the log; empty if they are not logged
    bool finished = false;
};

} // namespace quillbox
