#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

struct sockaddr;

namespace quillbox {

/// A socket address in this system's `sockaddr` layout, as bytes.
using SocketAddress = std::vector<std::byte>;

/// Copies an IPv4 or IPv6 address of the system.
SocketAddress toSocketAddress(const sockaddr* address);

/// From the 4 or 16 bytes of an IPv4 or IPv6 address, in network byte order, and a port in host
/// byte order. `scope` is of IPv6 only.
SocketAddress makeSocketAddress(std::span<const std::uint8_t> address, std::uint16_t port,
                                std::uint32_t scope = 0);

/// AF_INET or AF_INET6; AF_UNSPEC if the bytes are not a valid address.
int familyOf(const SocketAddress& address);

bool isIPv4(const SocketAddress& address);

/// In host byte order; 0 if the bytes are not a valid address.
std::uint16_t portOf(const SocketAddress& address);

SocketAddress withPort(SocketAddress address, std::uint16_t port);

/// Parses a numeric host: "192.0.2.1", "::1", "[::1]", "fe80::1%eth0". None for a name.
std::optional<SocketAddress> parseNumericHost(const std::string& host, std::uint16_t port);

/// Formats the host as `parseNumericHost` accepts it, without brackets. None if the bytes are not a
/// valid address.
std::optional<std::string> numericHost(const SocketAddress& address);

/// An address without its port; IPv4-mapped IPv6 (RFC 4291, section 2.5.5.2) is stored as IPv4.
struct PlainAddress {
    bool isIPv4 = false;
    std::array<std::uint8_t, 16> bytes{};
    std::uint32_t scope = 0;

    /// None if the bytes are not a valid address.
    static std::optional<PlainAddress> of(const SocketAddress& address);

    bool isLoopback() const;

    /// 0.0.0.0/8 is "this network" (RFC 1122, section 3.2.1.3); Linux connects 0.0.0.0, like ::, to
    /// this computer.
    bool isUnspecified() const;

    bool isMulticastOrBroadcast() const;
};

/// Whether the address is in 127.0.0.0/8 (IPv4-mapped or not) or ::1.
bool isLoopback(const SocketAddress& address);

/// Whether both addresses are equal, and their scopes as well if both are known. Ignores the ports.
bool isSameHost(const SocketAddress& a, const SocketAddress& b);

} // namespace quillbox
