#include "app/start_settings.h"

#include "platform/standard_error.h"
#include "platform/text.h"

#include <array>
#include <cstddef>
#include <string>

namespace quillbox {

namespace {

constexpr const char* kThisComputerOnly = "thisComputerOnly";
constexpr const char* kDnsSd = "dnsSd";

/// In the order of the enumerators; the first is the default.
constexpr std::array<std::string_view, 3> kDnsSdNames{"auto", "daemon", "embedded"};

void tellChange(const char* key, const std::string& before, const std::string& now)
{
    printToStandardError(std::string("quillbox-helper: the setting \"") + key + "\" is now " + now
                         + " instead of " + before + ", for later starts as well");
}

const char* truth(bool value)
{
    return value ? "true" : "false";
}

} // namespace

const char* nameOf(DnsSdChoice choice)
{
    return kDnsSdNames.at(static_cast<std::size_t>(choice)).data();
}

std::optional<DnsSdChoice> dnsSdChoiceNamed(std::string_view name)
{
    for (const auto choice : {DnsSdChoice::Automatic, DnsSdChoice::Daemon, DnsSdChoice::Embedded}) {
        if (name == nameOf(choice))
            return choice;
    }
    return std::nullopt;
}

StartSettings storedStartSettings(UserDefaults& store)
{
    const bool isThisComputerOnly = store.boolForKey(kThisComputerOnly, false);
    const auto dnsSd = dnsSdChoiceNamed(store.choiceForKey(kDnsSd, kDnsSdNames));
    return {.reach = isThisComputerOnly ? Reach::ThisComputer : Reach::Network,
            .dnsSd = dnsSd.value_or(DnsSdChoice::Automatic)};
}

StartSettings chosen(const StartSettings& stored, const StartOptions& options)
{
    return {.reach = options.reach.value_or(stored.reach),
            .dnsSd = options.dnsSd.value_or(stored.dnsSd)};
}

void keep(const StartSettings& stored, const StartSettings& now, UserDefaults& store)
{
    if (now.reach != stored.reach) {
        const bool isThisComputerOnly = now.reach == Reach::ThisComputer;
        tellChange(kThisComputerOnly, truth(!isThisComputerOnly), truth(isThisComputerOnly));
        store.setBool(kThisComputerOnly, isThisComputerOnly);
    }
    if (now.dnsSd != stored.dnsSd) {
        tellChange(kDnsSd, inDoubleQuotes(nameOf(stored.dnsSd)), inDoubleQuotes(nameOf(now.dnsSd)));
        store.setString(kDnsSd, nameOf(now.dnsSd));
    }
}

} // namespace quillbox
