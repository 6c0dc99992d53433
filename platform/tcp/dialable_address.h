#pragma once

#include "platform/net_service.h"
#include "platform/network_monitor.h"

#include <vector>

namespace quillbox {

/// How this program came to know an address.
enum class AddressOrigin {
    Typed,           ///< the user's own words, or what the name service made of them
    DnsSd,           ///< a record from the network: anybody can have sent it
    DnsSdOnLoopback, ///< a record that arrived on a loopback interface: sent by this computer
};

/// What there is to know of this computer when an address is judged.
struct OwnAddresses {
    std::vector<InterfaceAddress> addresses;
    bool isOwnPort = false; ///< whether a listener of this program has the address's port
};

/// Whether a connection to `address` may be opened.
///
/// Nothing leads to this program's own listeners, which would dial again, for ever. What came by
/// DNS-SD leads to no unspecified, multicast or broadcast address and to no port 0; and to a
/// loopback address only when the record came from this computer, or else a stranger could make the
/// program a door to this computer's local services. IPv4 addresses in IPv6 clothes (RFC 4291,
/// section 2.5.5.2) are judged as what they are.
bool isDialable(const SocketAddress& address, AddressOrigin origin, const OwnAddresses& own);

/// Whether it is 127.0.0.0/8 or ::1, in either clothes.
bool isLoopback(const SocketAddress& address);

/// Whether it leads to this computer, which has these addresses: loopback and unspecified ones do
/// as well. The port plays no part.
bool isOfThisComputer(const SocketAddress& address, const std::vector<InterfaceAddress>& own);

/// Where an address came from that DNS-SD found on an interface of this computer, which has these
/// addresses.
AddressOrigin originOf(const SocketAddress& address, int interfaceIndex,
                       const std::vector<InterfaceAddress>& own);

/// Whether both are the same host: one address, and of two scopes that are known the same one. The
/// ports play no part.
bool isSameHost(const SocketAddress& a, const SocketAddress& b);

} // namespace quillbox
