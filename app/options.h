#pragma once

#include "app/control_message.h"
#include "platform/log.h"

#include <optional>
#include <set>
#include <span>
#include <string>
#include <variant>

namespace quillbox {

/// Who speaks DNS-SD for the program.
enum class DnsSdChoice {
    Automatic, ///< avahi-daemon whenever it answers, else the embedded engine
    Daemon,
    Embedded,
};

/// What the command line asks for.
struct Options {
    enum class Action {
        Run,
        ShowHelp, ///< of `request`'s command, or of the doctor, if there is one
        ShowVersion,
        RunDnsSdEngine, ///< be the process of the embedded engine
        TurnAutostartOn,
        TurnAutostartOff,
        Control,  ///< hand `request` to the running copy
        Diagnose, ///< tell why a phone is not seen
    };

    Action action = Action::Run;
    DnsSdChoice dnsSd = DnsSdChoice::Automatic;
    bool isHidden = false;              ///< starts without showing the window
    bool isThisComputerOnly = false;    ///< no other computer sees or reaches the relays
    std::set<LogCategory> verbose = {}; ///< what is told on standard error
    std::optional<ControlRequest> request = {};
    bool isDoctor = false; ///< the command that is for no running copy
    bool asJson = false;   ///< the status, or what the doctor found

    bool operator==(const Options&) const = default;
};

/// A command line that cannot be understood, in words for the user.
struct OptionsError {
    std::string text;

    bool operator==(const OptionsError&) const = default;
};

/// `arguments` are those behind the program's name. The first mistake counts.
std::variant<Options, OptionsError> parseOptions(std::span<const char* const> arguments);

/// What `--help` shows, and what it shows behind a command.
const char* helpText();
const char* helpTextOf(ControlCommand command);
const char* helpTextOfDoctor();

} // namespace quillbox
