#include "app/app_delegate.h"

#include <algorithm>
#include <utility>

namespace quillbox {

namespace {

using Answer = RunningApplications::Answer;

std::vector<std::string> namesOf(const std::vector<DiscoveredDevice>& devices)
{
    std::vector<std::string> names;
    names.reserve(devices.size());
    for (const DiscoveredDevice& device : devices)
        names.push_back(device.name);
    return names;
}

const std::string* nameAmong(const std::vector<std::string>& names, const std::string& wanted)
{
    const auto found = std::find_if(names.begin(), names.end(), [&wanted](const auto& name) {
        return canonicallyEqual(name, wanted);
    });
    return found == names.end() ? nullptr : &*found;
}

/// The target of a relay as users know it: the name of the phone, or the typed host and port.
/// `target` is what the relay was started with.
std::string shownTarget(const std::string& target, const std::vector<DiscoveredDevice>& devices)
{
    const auto device = std::find_if(devices.begin(), devices.end(), [&target](const auto& each) {
        return each.endpoint.description() == target;
    });
    return device == devices.end() ? target : device->name;
}

ControlAnswer unknownPhone(std::vector<std::string> names)
{
    return {.outcome = ControlOutcome::UnknownPhone, .phones = std::move(names)};
}

/// Answers with the reason why a URL was not opened, if it was not.
Workspace::Opened answerOnceOpened(const Answer& answer)
{
    return [answer](const std::optional<std::string>& reason) {
        ControlAnswer result;
        if (reason)
            result = {.outcome = ControlOutcome::Refused, .text = *reason};
        answer(encoded(result));
    };
}

} // namespace

void AppDelegate::messageArrived(const CopyMessage& message, const Answer& answer)
{
    const auto decoded = decodedRequest(message.text);
    if (const auto* refusal = std::get_if<ControlAnswer>(&decoded)) {
        answer(encoded(*refusal));
        return;
    }
    const auto& request = *std::get_if<ControlRequest>(&decoded);
    switch (request.command) {
    case ControlCommand::Status:
        answer(encoded(ControlAnswer{.status = helperStatus()}));
        return;
    case ControlCommand::Open:
        openOnRequest(request.phone, message.permission, answer);
        return;
    case ControlCommand::Manage:
        manageOnRequest(request.phone, message.permission, answer);
        return;
    case ControlCommand::Restart:
        answer(encoded(restartOnRequest()));
        return;
    case ControlCommand::Quit:
        answer(encoded(ControlAnswer()));
        quit();
        return;
    }
}

HelperStatus AppDelegate::helperStatus() const
{
    std::map<std::string, PhoneStatus, CanonicalLess> phones;
    for (const DiscoveredDevice& device : discoveredDevices)
        phones.try_emplace(device.name, PhoneStatus{.name = device.name}).first->second.hasFiles =
            true;
    for (const DiscoveredDevice& device : managementDevices)
        phones.try_emplace(device.name, PhoneStatus{.name = device.name})
            .first->second.hasWebManagement = true;

    const TrafficReport traffic = environment.network.traffic();
    HelperStatus status{.isReady = lastReport.ready,
                        .text = lastReport.text,
                        .hint = finderHint(),
                        .isShownInFinder = showInFinder.isChecked(),
                        .isAutomatic = automaticDiscovery.isChecked(),
                        .start = environment.startSettings,
                        .phones = {},
                        .relays = {},
                        .total = traffic.total};
    for (const auto& [name, phone] : phones)
        status.phones.push_back(phone);
    for (const auto& [name, target] : relayTargets) {
        const auto carried = traffic.listeners.find(name);
        status.relays.push_back(
            {.name = name,
             .target = shownTarget(target, discoveredDevices),
             .host = relayHosts.at(name).name,
             .traffic = carried == traffic.listeners.end() ? Traffic() : carried->second});
    }
    return status;
}

std::string AppDelegate::finderHint() const
{
    if (environment.networkView.isAvailable() || !showInFinder.isChecked())
        return {};
    return "File managers list no phones, because avahi-daemon is not running: "
           + environment.packageManager.howToRunAvahiDaemon() + '.';
}

void AppDelegate::openOnRequest(const std::optional<std::string>& phone,
                                const std::string& permission, const Answer& answer)
{
    const bool isAutomatic = automaticDiscovery.isChecked();
    const auto names =
        isAutomatic ? namesOf(discoveredDevices) : std::vector<std::string>{kManualFinderName};
    const std::string* name = phone ? nameAmong(names, *phone) : nullptr;
    if (phone && !name) {
        answer(encoded(unknownPhone(names)));
        return;
    }
    const auto refusal = openShare(name, permission, answerOnceOpened(answer));
    if (!refusal)
        return;
    ControlAnswer refused{.outcome = ControlOutcome::Refused, .text = refusal->text};
    if (refusal->ready)
        refused.phones = names; // not an error: the user only has to choose one
    answer(encoded(refused));
}

void AppDelegate::manageOnRequest(const std::optional<std::string>& phone,
                                  const std::string& permission, const Answer& answer)
{
    const auto names = namesOf(managementDevices);
    if (!phone && managementDevices.size() != 1) {
        openManagement(permission);
        answer(encoded(ControlAnswer{.outcome = ControlOutcome::Refused,
                                     .text = names.empty() ? kHowToEnableManagement
                                                           : "Choose one of several phones",
                                     .phones = names}));
        return;
    }
    const std::string* name = phone ? nameAmong(names, *phone) : &names.front();
    if (!name) {
        answer(encoded(unknownPhone(names)));
        return;
    }
    const auto place = static_cast<std::size_t>(name - names.data());
    resolveManagement(managementDevices[place].endpoint,
                      {.permission = permission, .opened = answerOnceOpened(answer)});
}

ControlAnswer AppDelegate::restartOnRequest()
{
    restartFromMenu();
    // In automatic mode there may be no phone to relay to; in manual mode there is a relay unless a
    // field is invalid.
    if (automaticDiscovery.isChecked() || !relays.empty())
        return {};
    return {.outcome = ControlOutcome::Refused, .text = lastReport.text};
}

} // namespace quillbox
