#pragma once

#include "platform/desktop/instances/registration.h"
#include "platform/running_applications.h"

#include <QObject>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// What the running instances of an application say to each other over a local socket. A connection
/// carries one line with a request and one line that answers it:
///
///     activate[ TOKEN]       ok, or "no display" from an instance that has no window to show
///     message TOKEN TEXT     answer TEXT
///
/// TOKEN is the desktop's activation token, "-" in a message without one. On a line that is too
/// long or malformed the receiver closes the connection. Version 0.1.0 speaks the same protocol, so
/// an instance that runs while the program is upgraded still shows its window and takes commands.
namespace quillbox::instance_protocol {

inline constexpr char kEndOfLine = '\n';

/// Upper bounds for a line, in bytes: TEXT, and before it a keyword and a token.
inline constexpr std::size_t kLongestRequest = 512 + RunningApplication::kLongestMessage;
inline constexpr std::size_t kLongestAnswer = 512 + RunningApplication::kLongestAnswer;

struct Request {
    std::string token = {};               ///< may be empty
    std::optional<std::string> text = {}; ///< of a message; none: an activation

    bool operator==(const Request&) const = default;
};

inline constexpr std::string_view kActivated = "ok";
inline constexpr std::string_view kNoDisplay = "no display";

/// The line without its terminator; nullopt for a text that is too long or contains a terminator. A
/// token that is none is left out.
std::optional<std::string> lineOf(const Request& request);
std::optional<std::string> lineOfAnswer(std::string_view text);

/// What a line without its terminator says; nullopt if it is malformed.
std::optional<Request> requestIn(std::string_view line);
std::optional<std::string> answerIn(std::string_view line);

} // namespace quillbox::instance_protocol

namespace quillbox {

/// Answers a request with a line without its terminator, or hangs up. May be called at any time,
/// even after the client or the server has gone; only the first call counts.
using AnswerRequest = std::function<void(const std::optional<std::string>& line)>;
using RequestHandler =
    std::function<void(const instance_protocol::Request& request, const AnswerRequest& answer)>;

/// Serves the requests of the same user's other instances on the listening socket, until the result
/// is destroyed, which the handler may do. On the main thread and without blocking: requests may
/// arrive and answers leave in pieces. A client that takes more than some seconds to send its
/// request or to read the answer is disconnected. While the maximum number of clients is connected,
/// further ones wait in the socket's backlog.
std::unique_ptr<QObject> serveInstances(FileDescriptor listening, RequestHandler whenAsked);

/// Another running instance, to which this process speaks over its socket. The calls block, with a
/// limit, and need no event loop. They send nothing to a process of another user. `activationToken`
/// is the desktop's, to pass on; may be empty.
std::shared_ptr<RunningApplication> instanceAt(Registration found, std::string activationToken);

} // namespace quillbox
