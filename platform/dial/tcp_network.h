#pragma once

#include "platform/dispatch/dispatch_pool.h"
#include "platform/dns_sd.h"
#include "platform/network.h"
#include "platform/network_monitor.h"
#include "platform/service_locator.h"
#include "platform/values/reach.h"
#include "platform/values/traffic.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <system_error>

namespace quillbox {

struct DialContext;

/// Creates TCP listeners, connections and service locators that run on the threads of a pool. Keeps
/// track of the listening ports, which connections must not lead back to, and of the open sockets.
///
/// The queues that its objects are started on come from the same pool. Thread-safe. Its objects may
/// outlive it, but not `dnsSd` and `monitor`, unless the pool was shut down before.
class TcpNetwork final {
public:
    /// `reach`: from where its listeners can be reached.
    TcpNetwork(DispatchPool& pool, DnsSd& dnsSd, NetworkMonitor& monitor,
               Reach reach = Reach::Network);

    TcpNetwork(const TcpNetwork&) = delete;
    TcpNetwork& operator=(const TcpNetwork&) = delete;

    /// Opens the port at once, for IPv6 and IPv4. On failure returns null and sets `error`.
    std::shared_ptr<Listener> makeListener(const TcpParameters& parameters, std::uint16_t port,
                                           std::error_code& error);

    std::shared_ptr<Connection> makeConnection(const Endpoint& endpoint,
                                               const TcpParameters& parameters);

    /// Completions run on the main queue. `resolvesFoundNames` tells whether the system's name
    /// service resolves the names that DNS-SD finds, however long it may take. The locator must not
    /// outlive this object.
    std::unique_ptr<ServiceLocator> makeServiceLocator(std::shared_ptr<DispatchQueue> mainQueue,
                                                       std::function<bool()> resolvesFoundNames);

    /// The traffic of the accepted connections so far.
    TrafficReport traffic() const;

    /// Waits until the sockets of all connections are closed and the data of cancelled ones is
    /// delivered, or until `limit` has passed; returns whether all are closed. For the end of the
    /// program, after everything was cancelled. Not to be called on a queue of the pool.
    bool flush(std::chrono::milliseconds limit);

private:
    const std::shared_ptr<DialContext> context_;
};

} // namespace quillbox
