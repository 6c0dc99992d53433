#pragma once

#include "platform/dnssd/dns_sd.h"
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
class Resolution final : public std::enable_shared_from_this<Resolution>,
                         private EngineLink::Client,
                         private QueryObserver {
public:
    using Report = dnssd::Report<DnsSd::ResolveUpdate>;

    Resolution(EngineLink& engineLink, DispatchQueue& centerQueue, AddressPool& addresses,
               Report updates);
    ~Resolution();
    Resolution(const Resolution&) = delete;
    Resolution& operator=(const Resolution&) = delete;

    /// One of these two is called, once, when the object is held by a shared pointer.
    void startService(LocationPool& locations, const ServiceEndpoint& service);
    void startHost(const std::string& hostName);

private:
    struct Host {
        Location location;
        std::shared_ptr<AddressQuery> ipv4;
        std::shared_ptr<AddressQuery> ipv6;
    };

    void engineUp() override { scheduleUpdate(); }
    void engineDown(std::error_code /*error*/) override { scheduleUpdate(); }
    void engineEvent(const Event& /*event*/) override {}
    void queryChanged() override { scheduleUpdate(); }

    void scheduleUpdate();
    void update();
    void followLocations();
    Host makeHost(Location where);
    void dropHost(Host& host);
    void collectAddresses();
    std::vector<HostEndpoint> hostsOfAddresses() const;
    bool isSettled(std::shared_ptr<AddressQuery> Host::*query) const;

    EngineLink& link;
    DispatchQueue& queue;
    AddressPool& pool;
    Report report;
    std::shared_ptr<LocationQuery> location; ///< null for a host or an invalid service
    std::vector<Host> hosts;
    std::vector<DnsSd::FoundAddress> known; ///< in the order found
    bool isScheduled = false;
};

} // namespace quillbox::dnssd
