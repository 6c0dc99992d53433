#pragma once

#include "platform/dnssd/dns_sd.h"
#include "platform/network_monitor.h"
#include "platform/reach.h"
#include "platform/tcp/chunk_pool.h"
#include "platform/tcp/host_lookup.h"
#include "platform/tcp/own_ports.h"
#include "platform/tcp/pipe_pool.h"
#include "platform/tcp/proven_addresses.h"
#include "platform/tcp/resolve_cache.h"
#include "platform/tcp/socket_ledger.h"
#include "platform/tcp/traffic_ledger.h"

#include <memory>

namespace quillbox {

/// Shared by all listeners and connections of a `TcpNetwork`. All members are thread-safe.
struct TcpContext {
    DnsSd& dnsSd;
    NetworkMonitor& monitor;
    std::shared_ptr<ResolveCache> resolutions;
    std::shared_ptr<ChunkPool> chunks;
    std::shared_ptr<PipePool> pipes;
    std::shared_ptr<SocketLedger> sockets;
    std::shared_ptr<HostLookup> hosts;
    Reach reach = Reach::Network;
    OwnPorts ownPorts;
    ProvenAddresses provenAddresses;
    TrafficLedger traffic;
};

} // namespace quillbox
