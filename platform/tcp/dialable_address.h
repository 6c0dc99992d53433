#pragma once

#include "platform/net_service.h"
#include "platform/network_monitor.h"

#include <vector>

namespace quillbox {

/// Where this program got an address from.
enum class AddressOrigin {
    Typed,           ///< typed by the user, or resolved by the name service from a typed name
    DnsSd,           ///< a record from the network, which any host can have sent
    DnsSdOnLoopback, ///< a record received on a loopback interface: sent by this computer
};

/// Facts about this computer that `isDialable` needs.
struct OwnAddresses {
    std::vector<InterfaceAddress> addresses;
    bool isOwnPort = false; ///< whether a listener of this program uses the address's port
};

/// Whether a connection to `address` may be opened.
///
/// Connections to this program's own listeners are not allowed, since these would connect again, in
/// an endless loop. An address found by DNS-SD must not be unspecified, multicast or broadcast, its
/// port must not be 0, and it may be a loopback address only if the record was sent by this
/// computer: otherwise any host on the network could use the program to reach local services of
/// this computer. An IPv4-mapped IPv6 address (RFC 4291, section 2.5.5.2) is treated as IPv4.
bool isDialable(const SocketAddress& address, AddressOrigin origin, const OwnAddresses& own);

/// Whether the address is in 127.0.0.0/8 (IPv4-mapped or not) or ::1.
bool isLoopback(const SocketAddress& address);

/// Whether the address is one of `own`, which are this computer's addresses, or a loopback or
/// unspecified one. Ignores the port.
bool isOfThisComputer(const SocketAddress& address, const std::vector<InterfaceAddress>& own);

/// The origin of an address that DNS-SD found on the interface with this index; `own` are this
/// computer's addresses.
AddressOrigin originOf(const SocketAddress& address, int interfaceIndex,
                       const std::vector<InterfaceAddress>& own);

/// Whether both addresses are equal, and their scopes as well if both are known. Ignores the ports.
bool isSameHost(const SocketAddress& a, const SocketAddress& b);

} // namespace quillbox
