#pragma once

#include "platform/dns_sd.h"
#include "platform/tcp/chunk_pool.h"
#include "platform/tcp/own_ports.h"
#include "platform/tcp/pipe_pool.h"
#include "platform/tcp/socket_ledger.h"
#include "platform/tcp/traffic_ledger.h"
#include "platform/values/reach.h"

#include <memory>

namespace quillbox {

/// Shared by all listeners and connections of a `TcpNetwork`. All members are thread-safe.
struct TcpContext {
    TcpContext(DnsSd& ownDnsSd, Reach ownReach) : dnsSd(ownDnsSd), reach(ownReach) {}

    DnsSd& dnsSd;
    const Reach reach;
    const std::shared_ptr<ChunkPool> chunks = std::make_shared<ChunkPool>();
    const std::shared_ptr<PipePool> pipes = std::make_shared<PipePool>();
    const std::shared_ptr<SocketLedger> sockets =
        std::make_shared<SocketLedger>(SocketLedger::defaultMost());
    OwnPorts ownPorts{reach};
    TrafficLedger traffic;
};

} // namespace quillbox
