#pragma once

#include "platform/dnssd/operations/engine_link.h"
#include "platform/dnssd/operations/local_addresses.h"
#include "platform/dnssd/operations/own_services.h"
#include "platform/dnssd/operations/record_query.h"
#include "platform/log.h"

#include <cstdint>
#include <map>
#include <memory>
#include <utility>

namespace quillbox::dnssd {

/// The active queries and registrations, and what they share. Belongs to its queue.
struct Center final {
    Center(std::unique_ptr<Engine> engine, std::shared_ptr<DispatchQueue> itsQueue,
           NetworkMonitor& monitor, Log& itsLog, Reach reach = Reach::Network)
        : queue(std::move(itsQueue)),
          log(itsLog),
          link(std::move(engine)),
          localAddresses(monitor, reach),
          locations(link, *queue),
          addresses(link, *queue)
    {
    }
    Center(const Center&) = delete;
    Center& operator=(const Center&) = delete;
    ~Center() { link.stop(); }

    const std::shared_ptr<DispatchQueue> queue;
    Log& log;
    EngineLink link;
    LocalAddresses localAddresses;
    OwnServices ownServices;
    LocationPool locations;
    AddressPool addresses;
    std::unique_ptr<NetworkMonitor::Subscription> addressChanges;
    std::map<std::uint64_t, std::shared_ptr<void>> operations; ///< by number
};

} // namespace quillbox::dnssd
