#pragma once

#include "platform/connection.h"
#include "platform/dns_sd.h"
#include "platform/listener.h"
#include "platform/values/endpoint.h"
#include "platform/values/traffic.h"

#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

namespace quillbox {

/// TCP parameters. Independent of them, every connection has TCP_NODELAY set and keep-alive
/// enabled: 4 probes, 15 s apart, after 60 s without traffic, so that a dead peer is detected
/// within 2 minutes.
struct TcpParameters {
    bool allowLocalEndpointReuse = false;
    /// The accepted connection, not yet started, on whose behalf an outgoing connection is opened.
    ///
    /// The outgoing connection fails if DNS-SD finds its endpoint at the client's address, beside
    /// whatever others: if records lead two relays to each other, each session of one would
    /// otherwise open one at the other. The client's host is not recognised if the records have
    /// only other addresses of it, such as that of the other address family.
    ///
    /// When it is cancelled, it ends with a reset (RFC 9293, section 3.10.5) if the client has
    /// reset its own connection, or if nothing went either way, not even the end of the endpoint's
    /// stream. Otherwise a client could use up the local ports: for the side that ends a connection
    /// in order, its port is not available for a minute (TIME-WAIT).
    std::weak_ptr<Connection> client = {};
};

/// Ports from `first` to `last`, both included.
struct PortRange {
    std::uint16_t first = 0;
    std::uint16_t last = 0;

    bool contains(std::uint16_t port) const { return first <= port && port <= last; }
    bool operator==(const PortRange&) const = default;
};

/// The system chooses a free port: for listeners with a service, one of `kServicePorts`, and the
/// same one for the same name, unless others have it. Clients keep passwords and bookmarks by port.
inline constexpr std::uint16_t kAnyPort = 0;

/// No service is assigned one of these: ports from 49152 on are for private use (RFC 6335, section
/// 6). And Linux gives none of them to other sockets by itself, unless it is configured to: it ends
/// at 60999.
inline constexpr PortRange kServicePorts{.first = 61000, .last = 64999};

/// The factory of all network objects. Thread-safe. The objects do nothing until they are started,
/// except that a listener opens its port at once. Outlives its objects.
class Network {
public:
    virtual ~Network() = default;

    /// Opens the port at once. On failure returns null and sets `error`. With `kAnyPort` a listener
    /// that has a service leaves this port for that of the service when it is started.
    virtual std::shared_ptr<Listener> makeListener(const TcpParameters& parameters,
                                                   std::uint16_t port, std::error_code& error) = 0;

    virtual std::shared_ptr<Connection> makeConnection(const Endpoint& endpoint,
                                                       const TcpParameters& parameters) = 0;

    /// Starts the DNS-SD engine when it is called first.
    virtual DnsSd& dnsSd() = 0;

    /// The traffic of the accepted connections so far. Called on the main thread.
    virtual TrafficReport traffic() const = 0;
};

} // namespace quillbox
