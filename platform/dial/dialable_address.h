#pragma once

#include "platform/network_monitor.h"
#include "platform/tcp/own_ports.h"
#include "platform/values/socket_address.h"

#include <set>
#include <system_error>
#include <vector>

namespace quillbox {

/// The index of the loopback interface in every network namespace (LOOPBACK_IFINDEX in the kernel).
inline constexpr int kLoopbackInterface = 1;

/// An address and port to connect to, and where it was found.
struct Candidate {
    SocketAddress address;
    /// The interfaces on which DNS-SD records with this address arrived. Empty if the user typed
    /// the address, or a name that the name service resolved to it.
    std::set<int> interfaces;

    bool isTyped() const { return interfaces.empty(); }

    /// Whether another host may have sent the records.
    bool isFromNetwork() const { return !isTyped() && !interfaces.contains(kLoopbackInterface); }

    bool operator==(const Candidate&) const = default;
};

/// Adds an address that DNS-SD found to the candidate with this address, or as a new candidate.
void addCandidate(std::vector<Candidate>& candidates, const SocketAddress& address,
                  int interfaceIndex);

/// Whether, and how, a connection may be opened.
struct DialPermission {
    int bindTo = 0; ///< the index of the interface that the socket must be bound to; 0 for none
    /// Why it may not be opened: `connection_refused` for an address that the user typed,
    /// `address_not_available` for one that DNS-SD found, `no_buffer_space` if the kernel cannot be
    /// asked for its route.
    std::error_code refusal;

    explicit operator bool() const { return !refusal; }
    bool operator==(const DialPermission&) const = default;
};

/// Whether, and how, a connection to the candidate may be opened at this moment.
///
/// A record from the network may come from any host, and must not open a way to a server that this
/// host does not have itself. Its address is therefore dialled only through an interface on which
/// the record arrived, and never if it is an address of this computer: the relay would otherwise
/// lead past this computer's firewall, to servers that trust local clients, and to the networks
/// behind its other interfaces. IPv4-mapped IPv6 addresses (RFC 4291, section 2.5.5.2), which do
/// not belong into records, and port 0 are refused as well. What the packet filter changes after
/// the routing decision, as destination NAT in the OUTPUT chain does, is not known here.
///
/// A record that arrived on the loopback interface was sent by this computer; it is refused only
/// port 0 and unspecified, multicast and broadcast addresses. What the user typed is free.
///
/// Nothing is ever dialled that is a listener of this program: it would connect again, in an
/// endless loop.
DialPermission mayDial(const Candidate& candidate, const OwnPorts& ownPorts,
                       const NetworkMonitor& monitor);

/// Whether the address is one of `own`, which are this computer's addresses, or a loopback or
/// unspecified one. Ignores the port.
bool isOfThisComputer(const SocketAddress& address, const std::vector<InterfaceAddress>& own);

} // namespace quillbox
