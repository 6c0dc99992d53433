#pragma once

#include "platform/dial/host_lookup.h"
#include "platform/dispatch_queue.h"
#include "platform/dns_sd.h"
#include "platform/network_monitor.h"
#include "platform/service_locator.h"
#include "platform/tcp/own_ports.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace quillbox {

/// The dependencies of a service locator. The referenced objects outlive it.
struct ServiceLocatorMeans {
    DnsSd& dnsSd;
    NetworkMonitor& monitor;
    const OwnPorts& ownPorts;
    /// The system's name service: `HostLookup::lookUp`.
    std::function<void(const std::string& name, HostLookup::Done)> lookUp;
    /// Whether the name service resolves the names that DNS-SD finds, however long it may take.
    std::function<bool()> resolvesFoundNames;
    std::shared_ptr<DispatchQueue> queue; ///< the main queue
};

/// The time limits of a whole search; of waiting for an own service to be published, which takes
/// about a second; and of the name service lookup.
inline constexpr std::chrono::milliseconds kSearchLimit{6000};
inline constexpr std::chrono::milliseconds kPublicationLimit{2000};
inline constexpr std::chrono::milliseconds kHostLimit{1000};

/// Finds this program's own services in its own registrations, whatever is announced on the
/// network, and all others by DNS-SD.
///
/// Returns a service's host name if the system's name service can resolve it, because that is the
/// name in the network view of file managers, and they mount a share once for each host name that
/// they are given. It must be a multicast DNS name, so that no unicast DNS server is queried, and
/// all its addresses must belong to this computer (own services) or be among those that DNS-SD
/// found (other services). Where no DNS server is in reach the name service takes longer than
/// `kHostLimit`, and then `resolvesFoundNames` decides. Otherwise returns a numeric address; that
/// of another service satisfies `mayDial`.
std::unique_ptr<ServiceLocator> makeServiceLocator(ServiceLocatorMeans means);

} // namespace quillbox
