#pragma once

#include "platform/dispatch_queue.h"
#include "platform/values/socket_address.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace quillbox {

/// One address of one network interface of this computer that is up.
struct InterfaceAddress {
    int interfaceIndex = 0; ///< 0 if it is not known, as for an address with a label of its own
    std::string interfaceName;
    bool isLoopback = false;
    SocketAddress address; ///< port 0; an IPv6 link-local address carries its scope

    bool operator==(const InterfaceAddress&) const = default;
};

/// How packets to an address leave this computer, with respect to one of its interfaces.
enum class OutgoingRoute {
    None,      ///< not through this interface; also for an address of this computer, a broadcast or
               ///< multicast address, and one without a route
    Preferred, ///< through this interface
    IfBound,   ///< through it if the socket is bound to it, otherwise through another one
    Unknown,   ///< the kernel cannot be asked, as when it has no memory
};

/// Monitors this computer's interfaces, addresses and routes. Thread-safe.
class NetworkMonitor {
public:
    /// Its destructor unsubscribes; a call that is already queued may still run.
    class Subscription {
    public:
        virtual ~Subscription() = default;
    };

    virtual ~NetworkMonitor() = default;

    /// The current addresses, ordered by interface index. While the kernel cannot be asked, as when
    /// no file descriptor is available, the last known ones; subscribers are notified, so that they
    /// can ask again, until it answers.
    virtual std::vector<InterfaceAddress> addresses() const = 0;

    /// Asks the kernel's routing tables, as they are now, how a packet of a TCP connection to
    /// `address` leaves this computer. Needs no file descriptor.
    virtual OutgoingRoute routeThrough(int interfaceIndex, const SocketAddress& address) const = 0;

    /// Calls `changed` on `queue` after each change of interfaces, addresses or routes; changes in
    /// quick succession are coalesced into one call.
    virtual std::unique_ptr<Subscription> subscribe(std::shared_ptr<DispatchQueue> queue,
                                                    std::function<void()> changed) = 0;
};

} // namespace quillbox
