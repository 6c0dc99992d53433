#include "app/app_delegate.h"

#include <cstddef>
#include <utility>

namespace quillbox {

namespace {

/// "1 Quillbox device", "2 Quillbox devices".
std::string countOfDevices(std::size_t count)
{
    return std::to_string(count) + " Quillbox device" + (count == 1 ? "" : "s");
}

bool isUsableHost(const std::string& host)
{
    return !host.empty() && host.find('/') == std::string::npos
           && host.find('@') == std::string::npos;
}

/// Stops a relay and ignores its further status changes, which would be attributed to the relay
/// that now has its name.
void dismiss(FinderRelay& relay)
{
    relay.statusChanged = nullptr;
    relay.stop();
}

} // namespace

void AppDelegate::restartRelay()
{
    if (automaticDiscovery.isChecked()) {
        syncAutomaticRelays();
        return;
    }
    // First, so that no relay keeps running if a field is invalid.
    stopRelays();
    const std::string host = trimmed(hostField.text().toStdString());
    if (!isUsableHost(host)) {
        setStatus({.ready = false, .text = "Enter the local IP address shown in Quillbox"});
        return;
    }
    const auto port = parsePort(portField.text().toStdString());
    if (!port || *port == 0) {
        setStatus({.ready = false, .text = "Enter a valid SMB port"});
        return;
    }
    saveFields(host, *port);
    setStatus({.ready = false, .text = "Starting Finder service…"});
    startRelay(kManualFinderName, HostEndpoint{.host = host, .port = *port},
               host + ':' + std::to_string(*port),
               [this](const StatusReport& report) { setStatus(report); });
}

void AppDelegate::syncAutomaticRelays()
{
    retireChangedRelays();
    if (discoveredDevices.empty()) {
        setStatus({.ready = false, .text = "Looking for Quillbox on this network…"});
        return;
    }
    for (const DiscoveredDevice& device : discoveredDevices) {
        if (!relays.contains(device.name))
            startRelay(device.name, device.endpoint, device.endpoint.description(),
                       [this, name = device.name](const StatusReport& report) {
                           automaticRelayChanged(name, report);
                       });
    }
    if (isEveryDeviceReady())
        setStatus(visibleStatus());
    else
        setStatus({.ready = false,
                   .text = "Connecting " + countOfDevices(discoveredDevices.size()) + "…"});
}

void AppDelegate::stopRelays()
{
    const auto stopped = std::exchange(relays, {});
    relayTargets.clear();
    relayHosts.clear();
    readyFinderNames.clear();
    for (const auto& [finderName, relay] : stopped)
        dismiss(*relay);
}

void AppDelegate::startRelay(const std::string& finderName, const Endpoint& endpoint,
                             const std::string& target,
                             std::function<void(const StatusReport&)> changed)
{
    const auto relay = FinderRelay::make(environment.dispatch, environment.network, environment.log,
                                         environment.bundleIdentifier.value_or(""));
    relay->statusChanged = [self = QPointer(this),
                            changed = std::move(changed)](bool ready, const std::string& text) {
        if (self)
            changed({.ready = ready, .text = text});
    };
    relays[finderName] = relay;
    relayTargets[finderName] = target;
    relay->start(endpoint, target, finderName);
    relayHosts[finderName].updates = environment.network.dnsSd().findOwn(
        finderName, kSmbServiceType, environment.dispatch.mainQueue(),
        [self = QPointer(this), finderName](const auto& own) {
            if (self)
                self->relayHostChanged(finderName, own);
        });
}

void AppDelegate::retireChangedRelays()
{
    // Of several devices with the same name, the first one counts.
    std::map<std::string, std::string, CanonicalLess> desiredTargets;
    for (const DiscoveredDevice& device : discoveredDevices)
        desiredTargets.emplace(device.name, device.endpoint.description());

    for (auto entry = relays.begin(); entry != relays.end();) {
        const auto desired = desiredTargets.find(entry->first);
        const bool isKept =
            desired != desiredTargets.end() && relayTargets[entry->first] == desired->second;
        if (isKept) {
            ++entry;
            continue;
        }
        dismiss(*entry->second);
        relayTargets.erase(entry->first);
        relayHosts.erase(entry->first);
        readyFinderNames.erase(entry->first);
        entry = relays.erase(entry);
    }
}

void AppDelegate::automaticRelayChanged(const std::string& finderName, const StatusReport& report)
{
    if (report.ready)
        readyFinderNames.insert(finderName);
    else
        readyFinderNames.erase(finderName);

    if (isEveryDeviceReady())
        setStatus(visibleStatus());
    else if (!report.ready)
        setStatus(report);
}

void AppDelegate::relayHostChanged(const std::string& finderName,
                                   const std::optional<DnsSd::OwnService>& own)
{
    const auto host = relayHosts.find(finderName);
    if (host != relayHosts.end())
        host->second.name = own && own->isPublished ? own->hostName : "";
}

bool AppDelegate::isEveryDeviceReady() const
{
    // Compares the counts: devices with the same name share a relay, so they are never all ready.
    return readyFinderNames.size() == discoveredDevices.size();
}

StatusReport AppDelegate::visibleStatus() const
{
    return {.ready = true, .text = countOfDevices(readyFinderNames.size()) + " visible in Finder"};
}

} // namespace quillbox
