#pragma once

#include "platform/browser.h"
#include "platform/connection.h"
#include "platform/endpoint.h"
#include "platform/listener.h"
#include "platform/net_service.h"
#include "platform/traffic.h"

#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

namespace quillbox {

/// TCP parameters. A default-made value is the platform's default: no delay of small segments, and
/// keep-alive probes after 60 s, every 15 s, 4 of them, so that an idle peer that left is noticed
/// within 2 minutes.
struct TcpParameters {
    bool allowLocalEndpointReuse = false;
    bool includePeerToPeer = false;
};

/// Lets the system choose a free port.
inline constexpr std::uint16_t kAnyPort = 0;

/// The factory of everything that reaches the network. Thread-safe; what it makes does nothing
/// until it is started. It outlives what it made.
class Network {
public:
    virtual ~Network() = default;

    /// Opens the port at once. On failure gives nothing and sets `error`.
    virtual std::shared_ptr<Listener> makeListener(const TcpParameters& parameters,
                                                   std::uint16_t port, std::error_code& error) = 0;

    virtual std::shared_ptr<Connection> makeConnection(const Endpoint& endpoint,
                                                       const TcpParameters& parameters) = 0;

    /// `type` is like "_smb._tcp"; the default domain is browsed.
    virtual std::shared_ptr<Browser> makeBrowser(std::string type,
                                                 const TcpParameters& parameters) = 0;

    /// The interface of `service`, if any, is not used.
    virtual std::unique_ptr<NetService> makeNetService(const ServiceEndpoint& service) = 0;

    /// What the accepted connections have carried up to now. On the main thread.
    virtual TrafficReport traffic() const = 0;
};

} // namespace quillbox
