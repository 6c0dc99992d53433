#include "control/options.h"

#include "platform/values/text.h"

#include <array>
#include <string_view>
#include <utility>

namespace quillbox {

namespace {

using Action = Options::Action;

constexpr std::string_view kDnsSd = "--dns-sd";
constexpr std::string_view kThisComputerOnly = "--this-computer-only";
constexpr std::string_view kAutostart = "--autostart";
constexpr std::string_view kVerbose = "--verbose";
constexpr std::array<std::string_view, 2> kSwitch{"on", "off"};
constexpr const char* kDoctor = "doctor";

/// How session managers start a program of the session again (X Session Management Protocol), with
/// an identifier as the next argument, which this program has no use for.
constexpr std::string_view kSession = "-session";

std::string inQuotes(std::string_view argument)
{
    return '\'' + std::string(argument) + '\'';
}

/// Whether what the option says is of use beyond the run that it starts.
bool isKept(std::string_view option)
{
    const auto name = option.substr(0, option.find('='));
    return name == kThisComputerOnly || name == kDnsSd || name == kAutostart;
}

bool isAutostart(Action action)
{
    return action == Action::TurnAutostartOn || action == Action::TurnAutostartOff;
}

std::string namesOfCategories()
{
    std::string names;
    for (const LogCategory category : kLogCategories)
        names += (names.empty() ? "" : ", ") + std::string(nameOf(category));
    return names;
}

/// The commands in the order of `--help`.
std::string namesOfCommands()
{
    std::string names;
    for (const std::string_view command : kControlCommandNames)
        names.append(command).append(", ");
    return names + kDoctor;
}

/// Reads a command line argument by argument. Each step returns an error message, or nothing.
///
/// Not a QCommandLineParser, which has no option with an optional value: it takes the "status" of
/// "--verbose status" for the value, and rejects "--verbose" alone. It also reports mistakes by
/// kind rather than in the order of the arguments, and reads "-hidden" as seven options.
class Parser {
public:
    std::string apply(std::string_view argument)
    {
        if (std::exchange(isSessionNext, false))
            return {};
        if (argument == "--help" || argument == "-h")
            act(Action::ShowHelp);
        else if (argument == "--version")
            act(Action::ShowVersion);
        else if (argument == "--json")
            options.asJson = true;
        else if (argument.starts_with('-'))
            return takeStartOption(argument);
        else
            return takeWord(argument);
        return {};
    }

    /// Checks that need the whole command line.
    std::string check()
    {
        const auto& request = options.request;
        if (isSessionNext)
            return inQuotes(kSession) + " must be followed by an identifier";
        if (!runOption.empty() && isAutostart(options.action))
            return inQuotes(runOption) + " does not go with " + inQuotes(kAutostart);
        if (options.asJson && !options.isDoctor
            && (!request || request->command != ControlCommand::Status))
            return "'--json' goes with 'status' and 'doctor' only";
        if (request)
            act(Action::Control);
        if (options.isDoctor)
            act(Action::Diagnose);
        return {};
    }

    Options options;

private:
    /// The first of several actions counts.
    void act(Action action)
    {
        if (options.action == Action::Run)
            options.action = action;
    }

    /// An option for a new instance, which no command takes.
    std::string takeStartOption(std::string_view argument)
    {
        if (std::string problem = applyStartOption(argument); !problem.empty())
            return problem;
        if (startOption.empty())
            startOption = argument;
        if (runOption.empty() && !isKept(argument))
            runOption = argument;
        return checkStartOption();
    }

    std::string applyStartOption(std::string_view argument)
    {
        const auto equals = argument.find('=');
        const auto name = argument.substr(0, equals);
        const auto value =
            equals == std::string_view::npos ? std::string_view() : argument.substr(equals + 1);
        if (argument == "--hidden")
            options.isHidden = true;
        else if (argument == kThisComputerOnly)
            options.start.reach = Reach::ThisComputer;
        else if (argument == kSession)
            isSessionNext = true;
        else if (argument == kVerbose)
            options.verbose.insert(kLogCategories.begin(), kLogCategories.end());
        else if (name == kVerbose)
            return chooseCategories(value);
        else if (name == kThisComputerOnly)
            return choose(argument, kSwitch, [this](int place) {
                options.start.reach = place == 0 ? Reach::ThisComputer : Reach::Network;
            });
        else if (name == kAutostart)
            return choose(argument, kSwitch, [this](int place) {
                act(place == 0 ? Action::TurnAutostartOn : Action::TurnAutostartOff);
            });
        else if (name == kDnsSd)
            return choose(argument, kDnsSdNames, [this](int place) {
                options.start.dnsSd = static_cast<DnsSdChoice>(place);
            });
        else
            return "unknown option " + inQuotes(argument);
        return {};
    }

    std::string checkStartOption() const
    {
        if (startOption.empty() || (!options.request && !options.isDoctor))
            return {};
        return inQuotes(startOption) + " does not go with "
               + inQuotes(options.isDoctor ? kDoctor : nameOf(options.request->command));
    }

    /// Calls `take` with the place of the value of `argument`, like "on" in "--autostart=on", among
    /// the names.
    template <typename Take>
    static std::string choose(std::string_view argument, std::span<const std::string_view> names,
                              const Take& take)
    {
        std::string_view value = argument;
        const std::string option(takePart(value, '='));
        if (const auto place = valueNamed<int>(value, names)) {
            take(*place);
            return {};
        }
        std::string mistake = inQuotes(argument) + " is not one of ";
        for (const std::string_view& name : names) {
            if (&name != &names.front())
                mistake += &name == &names.back() ? " and " : ", ";
            mistake.append(option).append("=").append(name);
        }
        return mistake;
    }

    /// Comma-separated names.
    std::string chooseCategories(std::string_view names)
    {
        for (;;) {
            const auto comma = names.find(',');
            const auto category = logCategoryNamed(names.substr(0, comma));
            if (!category)
                return inQuotes(names.substr(0, comma))
                       + " is not a category of --verbose: " + namesOfCategories();
            options.verbose.insert(*category);
            if (comma == std::string_view::npos)
                return {};
            names.remove_prefix(comma + 1);
        }
    }

    std::string takeWord(std::string_view word)
    {
        if (!options.request && !options.isDoctor)
            return takeCommand(word);
        if (options.isDoctor || !takesPhone(options.request->command) || options.request->phone)
            return "unexpected argument " + inQuotes(word);
        if (word.empty() || word.size() > kLongestPhoneName || !isValidUtf8(word))
            return inQuotes(word) + " cannot be the name of a phone";
        options.request->phone = std::string(word);
        return {};
    }

    std::string takeCommand(std::string_view word)
    {
        options.isDoctor = word == kDoctor;
        if (!options.isDoctor) {
            const auto command = valueNamed<ControlCommand>(word, kControlCommandNames);
            if (!command)
                return "unknown command " + inQuotes(word) + " (commands: " + namesOfCommands()
                       + ')';
            options.request = ControlRequest{.command = *command};
        }
        return checkStartOption();
    }

    bool isSessionNext = false;   ///< the next argument is the value of "-session"
    std::string_view startOption; ///< the first option for a new instance, as typed
    std::string_view runOption;   ///< the first of them that nothing keeps
};

} // namespace

std::variant<Options, std::string> parseOptions(std::span<const char* const> arguments)
{
    Parser parser;
    for (const char* argument : arguments) {
        if (std::string problem = parser.apply(argument); !problem.empty())
            return problem;
    }
    if (std::string problem = parser.check(); !problem.empty())
        return problem;
    return parser.options;
}

} // namespace quillbox
