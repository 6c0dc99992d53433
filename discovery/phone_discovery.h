#pragma once

#include "discovery/discovered_device.h"
#include "platform/dispatch_queue.h"
#include "platform/log.h"
#include "platform/network.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace quillbox {

/// The DNS-SD type of the phones' file service.
inline constexpr const char* kFileServiceType = "_quillbox._tcp";

/// Whether an instance name is "Quillbox" or begins with "Quillbox ".
bool isNamedAfterProduct(const std::string& name);

/// Browses for one service type and reports, on the main thread, the complete list of the services
/// that are named after the product. The list is sorted by name in code-point order; equal names
/// keep the browser's order. Logs the state of browsing, and each device that appears or
/// disappears.
///
/// Used on the main thread. The owner calls `stop` before it releases the object.
class PhoneDiscovery final : public std::enable_shared_from_this<PhoneDiscovery> {
public:
    using ResultChanged = std::function<void(const std::vector<DiscoveredDevice>&)>;

    /// `bundleIdentifier` is the prefix of the queue's label. The references outlive the object.
    /// Browsing begins with `start`.
    PhoneDiscovery(Dispatch& dispatch, Network& browsed, Log& discoveryLog,
                   const std::string& bundleIdentifier, std::string type);
    PhoneDiscovery(const PhoneDiscovery&) = delete;
    PhoneDiscovery& operator=(const PhoneDiscovery&) = delete;

    /// Set before `start`. If the browser fails, it is called once with an empty list.
    ResultChanged resultChanged;

    /// Starts or restarts browsing.
    void start();

    /// Stops browsing. A report that is already queued is still delivered.
    void stop();

private:
    /// `last` is the browse's last state and last set.
    void update(const DnsSd::BrowseUpdate& update, DnsSd::BrowseUpdate& last);
    void deliver(std::vector<DiscoveredDevice> devices);
    void logState(const DnsSd::BrowseUpdate& update);
    void logDevices(const std::vector<DiscoveredDevice>& devices, std::size_t services);
    template <typename Text> void tell(Text&& text);

    Network& network;
    const std::shared_ptr<DispatchQueue> mainQueue;
    const std::string serviceType;
    const std::shared_ptr<DispatchQueue> queue;
    std::unique_ptr<DnsSd::Subscription> browse;
    Log& log;
    std::map<std::string, Log::Clock::time_point> logged; ///< devices that are there, since when
};

} // namespace quillbox
