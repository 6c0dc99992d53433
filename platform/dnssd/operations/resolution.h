#pragma once

#include "platform/dns_sd.h"
#include "platform/dnssd/operations/engine_link.h"
#include "platform/dnssd/operations/record_query.h"
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

    Resolution(const EngineLink& engineLink, DispatchQueue& centerQueue, AddressPool& addresses,
               Report updates);
    Resolution(const Resolution&) = delete;
    Resolution& operator=(const Resolution&) = delete;

    /// One of these two is called, once, when the object is held by a shared pointer.
    void startService(LocationPool& locations, const ServiceEndpoint& service);
    void startHost(const std::string& hostName);

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

    const EngineLink& link;
    DispatchQueue& queue;
    AddressPool& pool;
    Report report;
    std::shared_ptr<const LocationQuery> location; ///< null for a host or an invalid service
    std::vector<Host> hosts;
    std::vector<DnsSd::FoundAddress> known; ///< in the order found
    bool isScheduled = false;
};

} // namespace quillbox::dnssd
