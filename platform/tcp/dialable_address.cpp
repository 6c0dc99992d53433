#include "platform/tcp/dialable_address.h"

#include "platform/tcp/socket_address.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <optional>

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

bool isDialable(const SocketAddress& address, AddressOrigin origin, const OwnAddresses& own)
{
    const auto plain = plainAddress(address);
    if (!plain)
        return false;
    if (own.isOwnPort && isOfThisComputer(address, own.addresses))
        return false;
    if (origin == AddressOrigin::Typed)
        return true;
    if (portOf(address) == 0 || plain->isUnspecified() || plain->isMulticastOrBroadcast())
        return false;
    return !plain->isLoopback() || origin == AddressOrigin::DnsSdOnLoopback;
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

/// The interface a record arrived on matters only for loopback addresses.
AddressOrigin originOf(const SocketAddress& address, int interfaceIndex,
                       const std::vector<InterfaceAddress>& own)
{
    const bool isFromLoopback =
        std::any_of(own.begin(), own.end(), [interfaceIndex](const InterfaceAddress& each) {
            return each.isLoopback && each.interfaceIndex == interfaceIndex;
        });
    return isLoopback(address) && isFromLoopback ? AddressOrigin::DnsSdOnLoopback
                                                 : AddressOrigin::DnsSd;
}

bool isSameHost(const SocketAddress& a, const SocketAddress& b)
{
    const auto plainA = plainAddress(a);
    const auto plainB = plainAddress(b);
    return plainA && plainB && plainA->isSameHost(*plainB);
}

} // namespace quillbox
