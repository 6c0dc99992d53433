#include "platform/values/name_service.h"

#include "platform/values/text.h"

#include <algorithm>
#include <cctype>
#include <vector>

namespace quillbox {

namespace {

constexpr std::string_view kBlanks = " \t\r";

/// The value of the line "hosts:", without comments; empty if there is none.
std::string hostsLineIn(std::string_view configuration)
{
    constexpr std::string_view kKey = "hosts:";
    while (!configuration.empty()) {
        std::string_view line = takeLine(configuration);
        line = line.substr(0, line.find('#'));
        line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
        if (line.starts_with(kKey))
            return std::string(line.substr(kKey.size()));
    }
    return {};
}

/// A module that is asked, and whether the lookup ends if it does not know the name.
struct Step {
    std::string module;
    bool isLast = false;
};

/// Whether the actions, the text between brackets, end the lookup of a name that is not found.
bool endsWhereNotFound(std::string actions)
{
    std::ranges::transform(actions, actions.begin(), [](unsigned char character) {
        return static_cast<char>(std::tolower(character));
    });
    for (std::size_t at = 0; at < actions.size();) {
        const auto start = actions.find_first_not_of(kBlanks, at);
        if (start == std::string::npos)
            break;
        at = std::min(actions.find_first_of(kBlanks, start), actions.size());
        const std::string_view action = std::string_view(actions).substr(start, at - start);
        if (!action.ends_with("=return"))
            continue;
        // "!STATUS=return" is about every status but that one.
        if (action.starts_with('!') != action.starts_with("notfound=")
            && !action.starts_with("!notfound="))
            return true;
    }
    return false;
}

std::vector<Step> stepsOf(const std::string& hostsLine)
{
    std::vector<Step> steps;
    for (std::size_t at = 0; at < hostsLine.size();) {
        const auto start = hostsLine.find_first_not_of(kBlanks, at);
        if (start == std::string::npos)
            break;
        if (hostsLine[start] == '[') {
            const auto end = std::min(hostsLine.find(']', start), hostsLine.size());
            if (!steps.empty())
                steps.back().isLast =
                    endsWhereNotFound(hostsLine.substr(start + 1, end - start - 1));
            at = std::min(end + 1, hostsLine.size());
            continue;
        }
        at = std::min(hostsLine.find_first_of(" \t\r[", start), hostsLine.size());
        steps.push_back({.module = hostsLine.substr(start, at - start)});
    }
    return steps;
}

/// Whether a module knows only the names of this computer, and sends no queries.
bool isOfThisComputer(std::string_view module)
{
    return module == "files" || module == "myhostname" || module == "mymachines";
}

} // namespace

NameService::NameService(std::string_view configuration) : names(LocalNames::Nowhere)
{
    const auto steps = stepsOf(hostsLineIn(configuration));
    bool isAskedElsewhere = false;
    for (const Step& step : steps) {
        if (step.module.starts_with("mdns")) {
            names = LocalNames::Avahi;
            isOnly = !isAskedElsewhere && (step.isLast || &step == &steps.back());
            return;
        }
        if (step.module == "resolve")
            names = LocalNames::Resolved;
        if (step.isLast)
            return;
        isAskedElsewhere = isAskedElsewhere || !isOfThisComputer(step.module);
    }
}

} // namespace quillbox
