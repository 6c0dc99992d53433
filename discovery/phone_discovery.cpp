#include "discovery/phone_discovery.h"

#include "platform/values/text.h"

#include <algorithm>
#include <set>
#include <utility>

namespace quillbox {

namespace {

constexpr const char* kProductName = "Quillbox";
constexpr const char* kProductPrefix = "Quillbox ";

std::vector<DiscoveredDevice> devicesIn(const std::vector<ServiceEndpoint>& services)
{
    struct Keyed {
        std::string key;
        DiscoveredDevice device;
    };
    std::vector<Keyed> found;
    for (const ServiceEndpoint& service : services) {
        if (isNamedAfterProduct(service.name))
            found.push_back({normalized(service.name), {service, service.name}});
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const Keyed& a, const Keyed& b) { return a.key < b.key; });

    std::vector<DiscoveredDevice> devices;
    devices.reserve(found.size());
    for (Keyed& entry : found)
        devices.push_back(std::move(entry.device));
    return devices;
}

} // namespace

bool isNamedAfterProduct(const std::string& name)
{
    return canonicallyEqual(name, kProductName) || canonicallyHasPrefix(name, kProductPrefix);
}

PhoneDiscovery::PhoneDiscovery(Dispatch& dispatch, Network& browsed, Log& discoveryLog,
                               const std::string& bundleIdentifier, std::string type)
    : network(browsed),
      mainQueue(dispatch.mainQueue()),
      serviceType(std::move(type)),
      queue(dispatch.makeQueue(bundleIdentifier + ".discovery", QualityOfService::Utility)),
      log(discoveryLog)
{
}

void PhoneDiscovery::start()
{
    stop();
    browse = network.dnsSd().browse(
        serviceType, queue,
        [weak = weak_from_this(),
         last = std::make_shared<DnsSd::BrowseUpdate>()](const DnsSd::BrowseUpdate& update) {
            if (const auto self = weak.lock())
                self->update(update, *last);
        });
}

void PhoneDiscovery::stop()
{
    browse = nullptr;
}

template <typename Text> void PhoneDiscovery::tell(Text&& text)
{
    log.tell(LogCategory::Discovery, [&] { return serviceType + ": " + text(); });
}

void PhoneDiscovery::update(const DnsSd::BrowseUpdate& update, DnsSd::BrowseUpdate& last)
{
    using State = DnsSd::BrowseUpdate::State;
    const bool isNewState = last.state != update.state || last.error != update.error;
    last.state = update.state;
    last.error = update.error;
    if (isNewState)
        logState(update);
    if (update.state == State::Failed)
        return deliver({});
    if (update.state == State::Waiting || last.services == update.services)
        return;
    last.services = update.services;
    auto devices = devicesIn(update.services);
    logDevices(devices, update.services.size());
    deliver(std::move(devices));
}

void PhoneDiscovery::logState(const DnsSd::BrowseUpdate& update)
{
    switch (update.state) {
    case DnsSd::BrowseUpdate::State::Ready:
        return tell([] { return "browsing"; });
    case DnsSd::BrowseUpdate::State::Waiting:
        return tell([&] { return "cannot browse at present: " + update.error.message(); });
    case DnsSd::BrowseUpdate::State::Failed:
        return tell([&] { return "cannot browse: " + update.error.message(); });
    }
}

void PhoneDiscovery::logDevices(const std::vector<DiscoveredDevice>& devices, std::size_t services)
{
    if (!log.isOn(LogCategory::Discovery))
        return;
    std::set<std::string> names;
    for (const DiscoveredDevice& device : devices)
        names.insert(device.name);
    const auto now = log.now();
    std::erase_if(logged, [&](const auto& entry) {
        const bool isGone = !names.contains(entry.first);
        if (isGone)
            tell([&] {
                return inDoubleQuotes(entry.first) + " has disappeared after "
                       + durationText(now - entry.second);
            });
        return isGone;
    });
    for (const std::string& name : names) {
        if (logged.emplace(name, now).second)
            tell([&] { return inDoubleQuotes(name) + " has appeared"; });
    }
    if (services > devices.size())
        tell([&] {
            return "other services of this type: " + std::to_string(services - devices.size());
        });
}

void PhoneDiscovery::deliver(std::vector<DiscoveredDevice> devices)
{
    mainQueue->async([weak = weak_from_this(), devices = std::move(devices)] {
        const auto self = weak.lock();
        if (!self)
            return;
        // A copy: the callback may replace itself.
        if (const auto callback = self->resultChanged)
            callback(devices);
    });
}

} // namespace quillbox
