#pragma once

#include "control/helper_status.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace quillbox {

/// Commands that another process can send to the running copy.
enum class ControlCommand {
    Status,
    Open,   ///< open the share of a phone
    Manage, ///< open the web management of a phone
    Restart,
    Quit,
};

/// Their names, in their order, as on the command line.
inline constexpr std::array<std::string_view, 5> kControlCommandNames{"status", "open", "manage",
                                                                      "restart", "quit"};
const char* nameOf(ControlCommand command);

/// Whether the command accepts the name of a phone.
bool takesPhone(ControlCommand command);

struct ControlRequest {
    ControlCommand command = ControlCommand::Status;
    std::optional<std::string> phone = {}; ///< UTF-8; nullopt: the only phone

    bool operator==(const ControlRequest&) const = default;
};

/// In bytes. No phone has a longer name: a DNS-SD instance name has at most 63 bytes.
inline constexpr std::size_t kLongestPhoneName = 255;

enum class ControlOutcome {
    Done,
    Refused,       ///< `text` says why
    UnknownPhone,  ///< `phones` lists the known phones
    NotUnderstood, ///< malformed, or from another version of the program
};

struct ControlAnswer {
    ControlOutcome outcome = ControlOutcome::Done;
    std::string text = {};                   ///< for the user; may contain text from the network
    std::vector<std::string> phones = {};    ///< the names to choose from, if there is a choice
    std::optional<HelperStatus> status = {}; ///< the answer to ControlCommand::Status

    bool operator==(const ControlAnswer&) const = default;
};

/// Encodes a request or an answer for another copy of the program: JSON on one line, with the
/// version of the protocol. Decoding is strict, so that a copy of another version is detected
/// rather than misunderstood.
std::string encoded(const ControlRequest& request);
std::string encoded(const ControlAnswer& answer);

/// The request, or the answer that says why it is invalid.
std::variant<ControlRequest, ControlAnswer> decodedRequest(const std::string& text);
std::optional<ControlAnswer> decodedAnswer(const std::string& text);

} // namespace quillbox
