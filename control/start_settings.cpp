#include "control/start_settings.h"

#include "platform/values/standard_error.h"
#include "platform/values/text.h"

#include <cstddef>
#include <string>
#include <vector>

namespace quillbox {

namespace {

constexpr const char* kThisComputerOnlyKey = "thisComputerOnly";
constexpr const char* kDnsSdKey = "dnsSd";

} // namespace

const char* nameOf(DnsSdChoice mode)
{
    return kDnsSdNames.at(static_cast<std::size_t>(mode)).data();
}

StartSettings startSettings(const StartOptions& options, UserDefaults& store)
{
    StartSettings settings;
    if (options.reach) {
        settings.reach = *options.reach;
    } else {
        const bool isUnknown = !store.problem().empty();
        if (isUnknown)
            printToStandardError(
                "quillbox-helper: the setting \"thisComputerOnly\" therefore counts as true; to "
                "open the relays to the network, fix or remove the file, or start with "
                "--this-computer-only=off");
        if (store.boolForKey(kThisComputerOnlyKey, isUnknown))
            settings.reach = Reach::ThisComputer;
    }
    settings.dnsSd =
        options.dnsSd
            ? *options.dnsSd
            : valueNamed<DnsSdChoice>(store.choiceForKey(kDnsSdKey, kDnsSdNames), kDnsSdNames)
                  .value_or(settings.dnsSd);
    return settings;
}

bool keep(const StartOptions& options, UserDefaults& store, const char* since)
{
    std::vector<std::string> changes;
    if (options.reach) {
        const bool isThisComputerOnly = options.reach == Reach::ThisComputer;
        if (store.setBool(kThisComputerOnlyKey, isThisComputerOnly))
            changes.push_back(inDoubleQuotes(kThisComputerOnlyKey) + " is "
                              + (isThisComputerOnly ? "true" : "false"));
    }
    if (options.dnsSd) {
        const std::string name = nameOf(*options.dnsSd);
        if (store.setString(kDnsSdKey, name))
            changes.push_back(inDoubleQuotes(kDnsSdKey) + " is " + inDoubleQuotes(name));
    }
    if (!store.save())
        return false;
    for (const std::string& change : changes)
        printToStandardError("quillbox-helper: the setting " + change + ' ' + since);
    return true;
}

} // namespace quillbox
