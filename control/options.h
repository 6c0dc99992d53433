#pragma once

#include "control/control_message.h"
#include "control/start_settings.h"
#include "platform/log.h"

#include <optional>
#include <set>
#include <span>
#include <string>
#include <variant>

namespace quillbox {

/// What the command line asks for.
struct Options {
    enum class Action {
        Run,
        ShowHelp, ///< for `request`'s command or for `doctor`, if one was given
        ShowVersion,
        TurnAutostartOn,
        TurnAutostartOff,
        Control,  ///< send `request` to the running instance
        Diagnose, ///< run the checks of `doctor`
    };

    Action action = Action::Run;
    StartOptions start = {};
    bool isHidden = false;              ///< start without showing the window
    std::set<LogCategory> verbose = {}; ///< categories to log on standard error
    std::optional<ControlRequest> request = {};
    bool isDoctor = false; ///< the command is `doctor`, which needs no running instance
    bool asJson = false;   ///< print the status or the doctor's findings as JSON

    bool operator==(const Options&) const = default;
};

/// `arguments` excludes the program's name. If the command line is invalid, says why, for the user;
/// names the first mistake only.
std::variant<Options, std::string> parseOptions(std::span<const char* const> arguments);

/// The output of `--help`, alone and after a command.
const char* helpText();
const char* helpTextOf(ControlCommand command);
const char* helpTextOfDoctor();

} // namespace quillbox
