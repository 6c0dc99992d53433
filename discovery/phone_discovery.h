#pragma once

#include "discovery/device_story.h"
#include "discovery/discovered_device.h"
#include "platform/dispatch_queue.h"
#include "platform/log.h"
#include "platform/network.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace quillbox {

/// The type of the phones' file service.
inline constexpr const char* kFileServiceType = "_quillbox._tcp";

/// Whether a service of that instance name is one of the product's: "Quillbox", or "Quillbox " and
/// more.
bool isNamedAfterProduct(const std::string& name);

/// Browses for one service type and reports, on the main thread, the complete list of the services
/// that are named after the product. The list is sorted by name in code-point order; equal names
/// keep the browser's order.
///
/// Belongs to the main thread. The owner calls `stop` before it drops the object.
class PhoneDiscovery final : public std::enable_shared_from_this<PhoneDiscovery> {
public:
    using ResultChanged = std::function<void(const std::vector<DiscoveredDevice>&)>;

    /// `bundleIdentifier` prefixes the label of the queue. The references outlive the object.
    /// Nothing is browsed before `start`.
    static std::shared_ptr<PhoneDiscovery> make(Dispatch& dispatch, Network& network, Log& log,
                                                const std::string& bundleIdentifier,
                                                std::string type);

    PhoneDiscovery(const PhoneDiscovery&) = delete;
    PhoneDiscovery& operator=(const PhoneDiscovery&) = delete;

    /// Set before `start`. A browser that fails gives one empty list.
    ResultChanged resultChanged;

    /// Begins to browse, or begins afresh.
    void start();

    /// Ends browsing. A report that is already under way is still delivered.
    void stop();

private:
    PhoneDiscovery(Dispatch& dispatch, Network& browsed, Log& log,
                   const std::string& bundleIdentifier, std::string type);

    void deliver(std::vector<DiscoveredDevice> devices);

    Network& network;
    const std::shared_ptr<DispatchQueue> mainQueue;
    const std::string serviceType;
    const std::shared_ptr<DispatchQueue> queue;
    std::shared_ptr<Browser> browser;
    DeviceStory story; ///< on the browser's queue
};

} // namespace quillbox
