#pragma once

#include <optional>
#include <string>
#include <string_view>

/// The protocol that the running copies of an application use over a local socket. A connection
/// carries one request line and one answer line:
///
///     activate[ TOKEN]       ok, or "no display" from a copy that has no window to show
///     message TOKEN TEXT     answer TEXT
///
/// TOKEN is the desktop's activation token, "-" in a message without one. On a line that is too
/// long or malformed the receiver closes the connection.
namespace quillbox::copy_protocol {

inline constexpr char kEndOfLine = '\n';

/// Upper bound for what precedes TEXT in a line, in bytes: the keyword and the token.
inline constexpr std::size_t kLongestPrefix = 512;

/// The line without its terminator; nullopt for a text that is too long or contains a terminator.
std::string activation(std::string_view token);
std::optional<std::string> message(std::string_view token, std::string_view text);
std::optional<std::string> answer(std::string_view text);

inline constexpr std::string_view kActivated = "ok";
inline constexpr std::string_view kNoDisplay = "no display";

/// A parsed request.
struct Request {
    enum class Kind { Activation, Message };

    Kind kind = Kind::Activation;
    std::string token; ///< may be empty
    std::string text;  ///< of a message
};

/// Parses a line without its terminator; nullopt if it is malformed.
std::optional<Request> requestIn(std::string_view line);
std::optional<std::string> answerIn(std::string_view line);

} // namespace quillbox::copy_protocol
