#pragma once

#include "platform/dispatch_queue.h"
#include "platform/listener.h"
#include "platform/values/endpoint.h"
#include "platform/values/socket_address.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace quillbox {

/// DNS-SD (RFC 6763). It survives restarts of the engine behind it: callers never have to repeat a
/// request.
///
/// Thread-safe. Handlers run on the queue given with them, never inside the call, and in order.
/// Destroying a `Subscription` ends it; a handler call that is already queued may still run.
class DnsSd {
public:
    /// A query or registration that is active until it is destroyed.
    class Subscription {
    public:
        virtual ~Subscription() = default;
    };

    struct BrowseUpdate {
        enum class State {
            Waiting, ///< no DNS-SD engine at present
            Ready,
            Failed, ///< permanently: this type cannot be browsed
        };

        State state = State::Waiting;
        std::error_code error; ///< in Waiting and Failed
        /// The complete set, in Ready only, in the order in which the services were first seen: one
        /// entry for each, however many interfaces and address families announce it. In Waiting the
        /// last set remains valid.
        std::vector<ServiceEndpoint> services;

        bool operator==(const BrowseUpdate&) const = default;
    };

    /// An address found for a service or a host. Not checked: see `mayDial`.
    struct FoundAddress {
        SocketAddress address;  ///< with the service's port (0 for a host) and, for IPv6, the scope
        int interfaceIndex = 0; ///< the interface on which the record arrived

        bool operator==(const FoundAddress&) const = default;
    };

    struct ResolveUpdate {
        /// The complete current set, IPv4 and IPv6, each pair of address and interface once, in the
        /// order found. Empty while nothing is known and when the service is gone.
        std::vector<FoundAddress> addresses = {};
        /// Whether the initial answer period is over for that family.
        bool isSettledIPv4 = false;
        bool isSettledIPv6 = false;
        std::error_code error = {}; ///< set while no engine is up; the last addresses remain valid
        /// The hosts that these addresses belong to, as the service's SRV records name them, with
        /// the port; empty when a host is resolved. Not checked either.
        std::vector<HostEndpoint> hosts = {};

        bool operator==(const ResolveUpdate&) const = default;
    };

    struct RegistrationUpdate {
        enum class State { Waiting, Ready, Failed };

        State state = State::Waiting;
        std::error_code error; ///< in Waiting and Failed
        std::string name;      ///< the name in use; after a conflict not the requested one

        bool operator==(const RegistrationUpdate&) const = default;
    };

    /// A service of this program. Nothing in it comes from the network.
    struct OwnService {
        std::string hostName;     ///< like "office-my-pc-1a2b3c4d.local", of this service only
        HostEndpoint onLoopback;  ///< an address in 127.0.0.0/8 of this service only, and its port
        bool isPublished = false; ///< service and host name are established on the network

        bool operator==(const OwnService&) const = default;
    };

    virtual ~DnsSd() = default;

    /// Browses the default domain for a type like "_smb._tcp". At most ten sets per second and 256
    /// services; while the set is full, further services are ignored, which is reported once on
    /// standard error.
    virtual std::unique_ptr<Subscription>
    browse(std::string type, std::shared_ptr<DispatchQueue> queue,
           std::function<void(const BrowseUpdate&)> handler) = 0;

    /// Finds the addresses of a service, or of a host like "phone.local", whose port is not used.
    virtual std::unique_ptr<Subscription>
    resolve(Endpoint endpoint, std::shared_ptr<DispatchQueue> queue,
            std::function<void(const ResolveUpdate&)> handler) = 0;

    /// Publishes the service under a host name of its own. On a name conflict the service is
    /// renamed ("Name #2"), with exponential backoff.
    virtual std::unique_ptr<Subscription>
    registerService(ServiceRegistration service, std::uint16_t port,
                    std::shared_ptr<DispatchQueue> queue,
                    std::function<void(const RegistrationUpdate&)> handler) = 0;

    /// Finds the service that this program registers as `name`, whatever it was renamed to after a
    /// conflict, and whether it is published yet or not; empty if this program has no such service.
    /// Reports immediately, and at each change.
    virtual std::unique_ptr<Subscription>
    findOwn(std::string name, std::string type, std::shared_ptr<DispatchQueue> queue,
            std::function<void(const std::optional<OwnService>&)> handler) = 0;
};

} // namespace quillbox
