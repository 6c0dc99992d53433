#pragma once

#include "platform/dispatch/dispatch_pool.h"
#include "platform/dnssd/dns_sd.h"
#include "platform/network.h"
#include "platform/network_monitor.h"
#include "platform/reach.h"
#include "platform/service_locator.h"
#include "platform/traffic.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <system_error>

namespace quillbox {

struct TcpContext;

/// Makes TCP listeners and connections on a pool's threads, and knows them all: the ports that are
/// listened on here, which no connection leads back to, and the sockets that are still open. Tells
/// other programs where they can connect to.
///
/// Queues that its objects are started on come from the same pool. Thread-safe. Its objects may
/// outlive it, but not `dnsSd` and `monitor`, unless the pool has been shut down before.
class TcpNetwork final {
public:
    /// Listeners can be reached as far as `reach` says.
    TcpNetwork(DispatchPool& pool, DnsSd& dnsSd, NetworkMonitor& monitor,
               Reach reach = Reach::Network);
    ~TcpNetwork();

    TcpNetwork(const TcpNetwork&) = delete;
    TcpNetwork& operator=(const TcpNetwork&) = delete;

    /// Opens the port at once, for IPv6 and IPv4. On failure gives nothing and sets `error`.
    std::shared_ptr<Listener> makeListener(const TcpParameters& parameters, std::uint16_t port,
                                           std::error_code& error);

    std::shared_ptr<Connection> makeConnection(const Endpoint& endpoint,
                                               const TcpParameters& parameters);

    /// Tells on the main queue. The locator does not outlive this object.
    std::unique_ptr<ServiceLocator> makeServiceLocator(std::shared_ptr<DispatchQueue> mainQueue);

    /// What the accepted connections have carried up to now.
    TrafficReport traffic() const;

    /// Waits until every connection's socket is closed, the bytes of the cancelled ones being
    /// delivered, or until `limit` has passed. Gives whether all are closed. For the end of the
    /// program, once everything has been cancelled; not called on a queue of the pool.
    bool flush(std::chrono::milliseconds limit);

private:
    const std::shared_ptr<TcpContext> context_;
};

} // namespace quillbox
