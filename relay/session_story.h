#pragma once

#include "platform/connection.h"
#include "platform/log.h"

#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

namespace quillbox {

/// Logs one session: when the phone was connected, what the session waits for, which side ended it
/// and why, its duration and byte counts. It wraps the session's connections, but only if the log
/// category is on, so that the data path has no overhead otherwise.
///
/// Used on the queue of the session.
class SessionStory final : public std::enable_shared_from_this<SessionStory> {
public:
    enum class Side : std::uint8_t { FileBrowser, Phone };

    /// Null if the log category is off. The log outlives the returned object.
    static std::shared_ptr<SessionStory> begin(Log& log, const std::string& finderName);

    SessionStory(const SessionStory&) = delete;
    SessionStory& operator=(const SessionStory&) = delete;

    /// Returns a wrapper for the session to use. `connection` has not been started yet.
    std::shared_ptr<Connection> watch(Side side, std::shared_ptr<Connection> connection);

    /// Called once, when the session has ended.
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
    std::string cause; ///< of the end; empty if neither side has caused it
    std::uint64_t bytesToPhone = 0;
    std::uint64_t bytesFromPhone = 0;
};

} // namespace quillbox
