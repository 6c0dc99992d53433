#pragma once

#include <optional>
#include <string>
#include <string_view>

/// What the copies of an application say to one another over a local socket. A connection carries
/// one request, a line, and what is answered to it, a line:
///
///     activate[ TOKEN]       ok
///     message TOKEN TEXT     answer TEXT
///
/// TOKEN is the desktop's permission to come forward, "-" in a message without one. A line that is
/// longer than it may be, or of another form, is answered with the end of the connection.
namespace quillbox::copy_protocol {

inline constexpr char kEndOfLine = '\n';

/// Room for a token and the words before a text.
inline constexpr std::size_t kLongestPrefix = 512;

/// Whether the text is fit to be a token: printable ASCII without blanks, of sensible length.
bool isToken(std::string_view text);

/// The line without its end, or none for a text that does not fit in a line.
std::string activation(std::string_view token);
std::optional<std::string> message(std::string_view token, std::string_view text);
std::optional<std::string> answer(std::string_view text);

inline constexpr std::string_view kActivated = "ok";

/// A request, as it was understood.
struct Request {
    enum class Kind { Activation, Message };

    Kind kind = Kind::Activation;
    std::string token; ///< may be empty
    std::string text;  ///< of a message
};

/// What a line without its end says; none when it is nothing of the above.
std::optional<Request> requestIn(std::string_view line);
std::optional<std::string> answerIn(std::string_view line);

} // namespace quillbox::copy_protocol
