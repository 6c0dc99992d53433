#pragma once

#include "app/helper_status.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace quillbox {

/// What can be asked of the running copy.
enum class ControlCommand {
    Status,
    Open,   ///< the share of a phone
    Manage, ///< open the web management of a phone
    Restart,
    Quit,
};

/// As on the command line.
const char* nameOf(ControlCommand command);
std::optional<ControlCommand> controlCommandNamed(std::string_view name);

/// Whether the name of a phone may follow.
bool takesPhone(ControlCommand command);

struct ControlRequest {
    ControlCommand command = ControlCommand::Status;
    std::optional<std::string> phone = {}; ///< UTF-8; none: the only one

    bool operator==(const ControlRequest&) const = default;
};

/// No phone has a longer name: a label of DNS-SD has 63 bytes.
inline constexpr std::size_t kLongestPhoneName = 255;

enum class ControlOutcome {
    Done,
    Refused,       ///< with the reason in the text
    UnknownPhone,  ///< `phones` are those that there are
    NotUnderstood, ///< no request, or one of another version of the program
};

struct ControlAnswer {
    ControlOutcome outcome = ControlOutcome::Done;
    std::string text = {};                   ///< for people; may hold what the network chose
    std::vector<std::string> phones = {};    ///< to choose from, where that helps
    std::optional<HelperStatus> status = {}; ///< of the command of that name

    bool operator==(const ControlAnswer&) const = default;
};

/// Requests and answers as the copies of the program pass them on: JSON on one line, with the
/// version of this language. Nothing but the exact form is understood, so that a program of another
/// version is noticed rather than guessed at.
std::string encoded(const ControlRequest& request);
std::string encoded(const ControlAnswer& answer);

/// The request, or the answer that says why it is none.
std::variant<ControlRequest, ControlAnswer> decodedRequest(const std::string& text);
std::optional<ControlAnswer> decodedAnswer(const std::string& text);

} // namespace quillbox
