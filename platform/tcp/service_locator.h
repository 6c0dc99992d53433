#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/dns_sd.h"
#include "platform/network_monitor.h"
#include "platform/service_locator.h"
#include "platform/tcp/host_lookup.h"
#include "platform/tcp/own_ports.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace quillbox {

/// What a locator asks. What is referred to outlives it.
struct ServiceLocatorMeans {
    DnsSd& dnsSd;
    NetworkMonitor& monitor;
    const OwnPorts& ownPorts;
    /// The system's name service: `HostLookup::lookUp`.
    std::function<void(const std::string& name, HostLookup::Done)> lookUp;
    std::shared_ptr<DispatchQueue> queue; ///< the main queue
};

/// How long a search may take, and how much of it the system's name service to know the host.
inline constexpr std::chrono::milliseconds kSearchLimit{6000};
inline constexpr std::chrono::milliseconds kHostLimit{1000};

/// Finds services of this program in its own books, whatever anybody says on the network, and all
/// others by DNS-SD.
///
/// A service is told by the name of its host where the system's name service knows it: file
/// browsers keep connections by that, and show it. It has to be a name of multicast DNS, so that no
/// other server is asked about it, and to lead to nothing but this computer, or the addresses that
/// DNS-SD found. Otherwise an address in numbers is told, of another computer's one that a
/// connection may be opened to.
std::unique_ptr<ServiceLocator> makeServiceLocator(ServiceLocatorMeans means);

} // namespace quillbox
