#pragma once

#include "platform/connection.h"
#include "platform/log.h"

#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

namespace quillbox {

/// Tells the log of one session: when the phone answered, what it waits for, which side ended it
/// and why, how long it took and what it carried. It looks on from between the session and its
/// connections, and only where somebody wants to know: the road of the bytes is otherwise free of
/// it.
///
/// All of it lives on the queue of the session.
class SessionStory final : public std::enable_shared_from_this<SessionStory> {
public:
    enum class Side : std::uint8_t { FileBrowser, Phone };

    /// None when nobody listens. The log outlives the story.
    static std::shared_ptr<SessionStory> begin(Log& log, const std::string& finderName);

    SessionStory(const SessionStory&) = delete;
    SessionStory& operator=(const SessionStory&) = delete;

    /// The connection as the session is to use it. It has not been started.
    std::shared_ptr<Connection> watch(Side side, std::shared_ptr<Connection> connection);

    /// The session has ended. Called once.
    void end();

private:
    class WatchedConnection;

    SessionStory(Log& sessionLog, const std::string& finderName);

    void tell(const std::string& text);
    void noteState(Side side, Connection::State state, std::error_code error);
    void noteReceived(Side side, std::size_t bytes, bool isComplete, std::error_code error);
    void noteCause(Side side, std::error_code error);

    Log& log;
    const std::string label;
    const Log::Clock::time_point start;
    std::string cause; ///< empty: neither side, so far
    std::uint64_t bytesToPhone = 0;
    std::uint64_t bytesFromPhone = 0;
};

} // namespace quillbox
