#include "app/options.h"

#include <optional>
#include <string_view>

namespace quillbox {

namespace {

constexpr std::string_view kDnsSd = "--dns-sd";

std::optional<DnsSdChoice> dnsSdChoiceNamed(std::string_view name)
{
    if (name == "auto")
        return DnsSdChoice::Automatic;
    if (name == "daemon")
        return DnsSdChoice::Daemon;
    if (name == "embedded")
        return DnsSdChoice::Embedded;
    return std::nullopt;
}

/// Takes one argument in; gives what is wrong with it, or nothing.
std::string apply(std::string_view argument, Options& options)
{
    const std::string quoted = '\'' + std::string(argument) + '\'';
    const auto equals = argument.find('=');
    if (argument == "--help") {
        options.action = Options::Action::ShowHelp;
    } else if (argument == "--version") {
        options.action = Options::Action::ShowVersion;
    } else if (argument == "--dns-sd-engine") {
        options.action = Options::Action::RunDnsSdEngine;
    } else if (argument.substr(0, equals) == kDnsSd) {
        const auto choice = equals == std::string_view::npos
                                ? std::nullopt
                                : dnsSdChoiceNamed(argument.substr(equals + 1));
        if (!choice)
            return quoted + " is not one of --dns-sd=auto, --dns-sd=daemon and --dns-sd=embedded";
        options.dnsSd = *choice;
    } else if (argument.starts_with('-')) {
        return "unknown option " + quoted;
    } else {
        return "unexpected argument " + quoted;
    }
    return {};
}

} // namespace

std::variant<Options, OptionsError> parseOptions(std::span<const char* const> arguments)
{
    Options options;
    for (const char* argument : arguments) {
        Options next = options;
        if (std::string problem = apply(argument, next); !problem.empty())
            return OptionsError{std::move(problem)};
        // Of several actions the first one counts: help that was asked for is given.
        if (options.action != Options::Action::Run)
            next.action = options.action;
        options = next;
    }
    return options;
}

const char* helpText()
{
    return "Usage: quillbox-helper [OPTION]...\n"
           "Makes a Quillbox phone on this network appear in the file browser.\n"
           "\n"
           "  --dns-sd=ENGINE  who finds and announces services: auto (the default: avahi-daemon\n"
           "                   whenever it runs, else the embedded engine), daemon, embedded\n"
           "  --help           show this help and exit\n"
           "  --version        show the version and exit\n"
           "\n"
           "A second copy brings the first one forward and exits. Without a display the helper "
           "runs\n"
           "without a window and tells its status on standard error.\n";
}

} // namespace quillbox
