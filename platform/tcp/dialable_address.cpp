#include "platform/tcp/dialable_address.h"

#include "platform/tcp/socket_address.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <system_error>

#include <netinet/in.h>

namespace quillbox {

namespace {

/// An address without its port; IPv4-mapped IPv6 is stored as IPv4.
struct PlainAddress {
    bool isIPv4 = false;
    std::array<std::uint8_t, 16> bytes{};
    std::uint32_t scope = 0;

    std::uint8_t first() const { return bytes[0]; }

    bool isAll(std::uint8_t value, std::size_t count) const
    {
        return std::all_of(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count),
                           [value](std::uint8_t byte) { return byte == value; });
    }

    bool isLoopback() const { return isIPv4 ? first() == 127 : isAll(0, 15) && bytes[15] == 1; }

    /// 0.0.0.0/8 is "this network" (RFC 1122, section 3.2.1.3); Linux connects 0.0.0.0, like ::, to
    /// this computer.
    bool isUnspecified() const { return isIPv4 ? first() == 0 : isAll(0, 16); }

    bool isMulticastOrBroadcast() const
    {
        return isIPv4 ? (first() & 0xf0) == 0xe0 || isAll(0xff, 4) : first() == 0xff;
    }

    /// The scopes are compared only if both are known.
    bool isSameHost(const PlainAddress& other) const
    {
        return isIPv4 == other.isIPv4 && bytes == other.bytes
               && (scope == 0 || other.scope == 0 || scope == other.scope);
    }
};

std::optional<PlainAddress> plainAddress(const SocketAddress& address)
{
    PlainAddress plain;
    switch (familyOf(address)) {
    case AF_INET:
        plain.isIPv4 = true;
        std::memcpy(plain.bytes.data(), address.data() + offsetof(sockaddr_in, sin_addr), 4);
        return plain;
    case AF_INET6: {
        sockaddr_in6 ipv6{};
        std::memcpy(&ipv6, address.data(), sizeof ipv6);
        plain.isIPv4 = IN6_IS_ADDR_V4MAPPED(&ipv6.sin6_addr);
        if (plain.isIPv4) {
            std::memcpy(plain.bytes.data(), ipv6.sin6_addr.s6_addr + 12, 4);
        } else {
            std::memcpy(plain.bytes.data(), ipv6.sin6_addr.s6_addr, 16);
            plain.scope = ipv6.sin6_scope_id;
        }
        return plain;
    }
    default:
        return std::nullopt;
    }
}

} // namespace

void addCandidate(std::vector<Candidate>& candidates, const SocketAddress& address,
                  int interfaceIndex)
{
    const auto known =
        std::find_if(candidates.begin(), candidates.end(),
                     [&address](const Candidate& each) { return each.address == address; });
    if (known == candidates.end())
        candidates.push_back({.address = address, .interfaces = {interfaceIndex}});
    else
        known->interfaces.insert(interfaceIndex);
}

DialPermission mayDial(const Candidate& candidate, const OwnPorts& ownPorts,
                       const NetworkMonitor& monitor)
{
    const auto& [address, interfaces] = candidate;
    const DialPermission refused{
        .refusal = std::make_error_code(candidate.isTyped() ? std::errc::connection_refused
                                                            : std::errc::address_not_available)};
    const auto plain = plainAddress(address);
    if (!plain)
        return refused;
    if (ownPorts.contains(portOf(address)) && isOfThisComputer(address, monitor.addresses()))
        return refused;
    if (candidate.isTyped())
        return {};
    if (portOf(address) == 0 || plain->isUnspecified() || plain->isMulticastOrBroadcast())
        return refused;
    if (!candidate.isFromNetwork())
        return {};
    if (plain->isLoopback() || (plain->isIPv4 && familyOf(address) == AF_INET6))
        return refused;
    DialPermission permission = refused;
    for (const int interfaceIndex : interfaces) {
        switch (monitor.routeThrough(interfaceIndex, address)) {
        case OutgoingRoute::Preferred:
            return {};
        case OutgoingRoute::IfBound:
            permission = {.bindTo = interfaceIndex, .refusal = {}};
            break;
        case OutgoingRoute::Unknown:
            if (!permission)
                permission.refusal = std::make_error_code(std::errc::no_buffer_space);
            break;
        case OutgoingRoute::None:
            break;
        }
    }
    return permission;
}

bool isLoopback(const SocketAddress& address)
{
    const auto plain = plainAddress(address);
    return plain && plain->isLoopback();
}

bool isOfThisComputer(const SocketAddress& address, const std::vector<InterfaceAddress>& own)
{
    const auto plain = plainAddress(address);
    if (!plain)
        return false;
    return plain->isLoopback() || plain->isUnspecified()
           || std::any_of(own.begin(), own.end(), [&address](const InterfaceAddress& each) {
                  return isSameHost(address, each.address);
              });
}

bool isSameHost(const SocketAddress& a, const SocketAddress& b)
{
    const auto plainA = plainAddress(a);
    const auto plainB = plainAddress(b);
    return plainA && plainB && plainA->isSameHost(*plainB);
}

} // namespace quillbox
