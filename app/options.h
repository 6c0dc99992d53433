#pragma once

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
        ShowHelp,
        ShowVersion,
        RunDnsSdEngine, ///< be the process of the embedded engine
    };

    Action action = Action::Run;
    DnsSdChoice dnsSd = DnsSdChoice::Automatic;

    bool operator==(const Options&) const = default;
};

/// A command line that cannot be understood, in words for the user.
struct OptionsError {
    std::string text;

    bool operator==(const OptionsError&) const = default;
};

/// `arguments` are those behind the program's name. The first mistake counts.
std::variant<Options, OptionsError> parseOptions(std::span<const char* const> arguments);

/// What `--help` shows.
const char* helpText();

} // namespace quillbox
