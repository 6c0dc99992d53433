#pragma once

#include "platform/dns_sd.h"
#include "platform/dnssd/operations/center.h"
#include "platform/dnssd/operations/report.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace quillbox::dnssd {

/// How many hosts of one service are queried for their addresses, and how many addresses of one
/// family are reported: hostile records must not cause a thousand connections.
inline constexpr std::size_t kMaximumHosts = 4;
inline constexpr std::size_t kMaximumAddresses = 16;

/// Finds the addresses of a service, through its SRV records, or of a host. Belongs to the center's
/// queue.
class Resolution final : public std::enable_shared_from_this<Resolution>, private QueryObserver {
public:
    using Report = dnssd::Report<DnsSd::ResolveUpdate>;

    Resolution(Center& itsCenter, Report updates, Endpoint resolved);
    Resolution(const Resolution&) = delete;
    Resolution& operator=(const Resolution&) = delete;

    /// Called once, when the object is held by a shared pointer.
    void start();

private:
    struct Host {
        HostEndpoint location;
        std::shared_ptr<const AddressQuery> ipv4;
        std::shared_ptr<const AddressQuery> ipv6;
    };

    void queryChanged() override { scheduleUpdate(); }

    void scheduleUpdate();
    void update();
    void followLocations();
    Host makeHost(HostEndpoint where);
    void collectAddresses();
    std::vector<HostEndpoint> hostsOfAddresses() const;
    bool isSettled(std::shared_ptr<const AddressQuery> Host::*query) const;

    Center& center;
    Report report;
    const Endpoint endpoint;
    std::shared_ptr<const LocationQuery> location; ///< null for a host or an invalid service
    std::vector<Host> hosts;
    std::vector<DnsSd::FoundAddress> known; ///< in the order found
    bool isScheduled = false;
};

} // namespace quillbox::dnssd
