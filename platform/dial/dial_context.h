#pragma once

#include "platform/dial/host_lookup.h"
#include "platform/dial/proven_addresses.h"
#include "platform/dial/resolve_cache.h"
#include "platform/network_monitor.h"
#include "platform/tcp/tcp_context.h"

#include <memory>
#include <utility>

namespace quillbox {

/// Shared by all outgoing connections of a `TcpNetwork`. All members are thread-safe.
struct DialContext final : TcpContext {
    /// `queue` is that of `ResolveCache`.
    DialContext(DnsSd& ownDnsSd, NetworkMonitor& ownMonitor, Reach ownReach,
                std::shared_ptr<DispatchQueue> queue)
        : TcpContext(ownDnsSd, ownReach),
          monitor(ownMonitor),
          resolutions(std::make_shared<ResolveCache>(ownDnsSd, std::move(queue)))
    {
    }

    NetworkMonitor& monitor;
    const std::shared_ptr<ResolveCache> resolutions;
    const std::shared_ptr<HostLookup> hosts = std::make_shared<HostLookup>();
    ProvenAddresses provenAddresses;
};

} // namespace quillbox
