#pragma once

#include "platform/dispatch_queue.h"
#include "platform/endpoint.h"
#include "platform/listener.h"
#include "platform/net_service.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace quillbox {

/// DNS-SD for the rest of the platform layer: what listeners, browsers, connections and resolvers
/// are made of. It survives the going and coming of the engine behind it; nobody above has to ask
/// twice.
///
/// Thread-safe. Handlers run on the queue given with them, never inside the call, and in order.
/// Destroying an `Ask` ends it; a handler call that is already on the queue may still come.
class DnsSd {
public:
    /// A question or registration that stands until it is destroyed.
    class Ask {
    public:
        virtual ~Ask() = default;
    };

    struct BrowseUpdate {
        enum class State { Waiting, Ready, Failed };

        State state = State::Waiting;
        std::error_code error; ///< in Waiting and Failed
        /// The complete set, in Ready only; in Waiting the last set stands.
        std::vector<ServiceEndpoint> services;

        bool operator==(const BrowseUpdate&) const = default;
    };

    /// An address that a service or a host was found at. Not checked: see `isDialable`.
    struct FoundAddress {
        SocketAddress address;  ///< with the service's port (0 for a host) and, for IPv6, the scope
        int interfaceIndex = 0; ///< where the record arrived

        bool operator==(const FoundAddress&) const = default;
    };

    struct ResolveUpdate {
        /// The complete current set, IPv4 and IPv6, each address and interface once, in the order
        /// in which they were found. Empty while nothing is known and when the service is gone.
        std::vector<FoundAddress> addresses;
        /// Whether the network has had its time to answer for that family.
        bool isSettledIPv4 = false;
        bool isSettledIPv6 = false;
        std::error_code error; ///< set while no engine answers; the last addresses then stand
        /// The hosts that these addresses are of, as the service's records name them, with the
        /// port; not for a resolved host. Not checked either.
        std::vector<HostEndpoint> hosts = {};

        bool operator==(const ResolveUpdate&) const = default;
    };

    struct RegistrationUpdate {
        enum class State { Waiting, Ready, Failed };

        State state = State::Waiting;
        std::error_code error; ///< in Waiting and Failed
        std::string name;      ///< the name in use, which differs from the one asked for after a
                               ///< collision

        bool operator==(const RegistrationUpdate&) const = default;
    };

    /// A service of this program's own. Nothing that is said on the network has a part in it.
    struct OwnService {
        std::string hostName;    ///< like "my-pc-office-1a2b3c4d.local": published for it alone
        HostEndpoint onLoopback; ///< an address in 127.0.0.0/8 that is its alone, and its port

        bool operator==(const OwnService&) const = default;
    };

    struct OwnServiceUpdate {
        std::optional<OwnService> service; ///< none: this program has no such service

        bool operator==(const OwnServiceUpdate&) const = default;
    };

    virtual ~DnsSd() = default;

    /// Keeps the limits that `Browser` promises.
    virtual std::unique_ptr<Ask> browse(std::string type, std::shared_ptr<DispatchQueue> queue,
                                        std::function<void(const BrowseUpdate&)> handler) = 0;

    virtual std::unique_ptr<Ask> resolve(ServiceEndpoint service,
                                         std::shared_ptr<DispatchQueue> queue,
                                         std::function<void(const ResolveUpdate&)> handler) = 0;

    /// `hostName` is like "phone.local".
    virtual std::unique_ptr<Ask> resolveHost(std::string hostName,
                                             std::shared_ptr<DispatchQueue> queue,
                                             std::function<void(const ResolveUpdate&)> handler) = 0;

    /// Publishes under a host name of its own. A name that is taken is changed ("Name #2"), with a
    /// pause that grows.
    virtual std::unique_ptr<Ask>
    registerService(ServiceRegistration service, std::uint16_t port,
                    std::shared_ptr<DispatchQueue> queue,
                    std::function<void(const RegistrationUpdate&)> handler) = 0;

    /// The service that this program registers under `name`, whatever it is called since a
    /// collision, and whether the network knows of it yet or not. Told at once, and at each change.
    virtual std::unique_ptr<Ask> findOwn(std::string name, std::string type,
                                         std::shared_ptr<DispatchQueue> queue,
                                         std::function<void(const OwnServiceUpdate&)> handler) = 0;
};

} // namespace quillbox
