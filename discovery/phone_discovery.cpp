#include "discovery/phone_discovery.h"

#include "platform/values/text.h"

#include <algorithm>
#include <set>
#include <utility>

namespace quillbox {

namespace {

constexpr const char* kProductName = "Quillbox";
constexpr const char* kProductPrefix = "Quillbox ";

std::vector<DiscoveredDevice> devicesIn(const Browser::Results& results)
{
    struct Keyed {
        std::string key;
        DiscoveredDevice device;
    };
    std::vector<Keyed> found;
    for (const Endpoint& endpoint : results) {
        const ServiceEndpoint* service = endpoint.service();
        if (service && isNamedAfterProduct(service->name))
            found.push_back({normalized(service->name), {endpoint, service->name}});
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

std::shared_ptr<PhoneDiscovery> PhoneDiscovery::make(Dispatch& dispatch, Network& network, Log& log,
                                                     const std::string& bundleIdentifier,
                                                     std::string type)
{
    return std::shared_ptr<PhoneDiscovery>(
        new PhoneDiscovery(dispatch, network, log, bundleIdentifier, std::move(type)));
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
    TcpParameters parameters;
    parameters.includePeerToPeer = true;
    const auto made = network.makeBrowser(serviceType, parameters);
    made->setResultsChangedHandler([weak = weak_from_this()](const Browser::Results& results) {
        const auto self = weak.lock();
        if (!self)
            return;
        auto devices = devicesIn(results);
        self->logDevices(devices, results.size());
        self->deliver(std::move(devices));
    });
    made->setStateUpdateHandler(
        [weak = weak_from_this()](Browser::State state, std::error_code error) {
            const auto self = weak.lock();
            if (!self)
                return;
            self->logState(state, error);
            if (state == Browser::State::Failed)
                self->deliver({});
        });
    browser = made;
    made->start(queue);
}

void PhoneDiscovery::stop()
{
    if (browser)
        browser->cancel();
    browser = nullptr;
}

template <typename Text> void PhoneDiscovery::tell(Text&& text)
{
    log.tell(LogCategory::Discovery, [&] { return serviceType + ": " + text(); });
}

void PhoneDiscovery::logState(Browser::State state, std::error_code error)
{
    if (state == Browser::State::Ready)
        tell([] { return "browsing"; });
    else if (state == Browser::State::Waiting)
        tell([&] { return "cannot browse at present: " + error.message(); });
    else if (state == Browser::State::Failed)
        tell([&] { return "cannot browse: " + error.message(); });
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
