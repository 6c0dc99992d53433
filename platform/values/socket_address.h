#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

struct sockaddr;

namespace quillbox {

/// An IPv4 or IPv6 address with its port, in this system's `sockaddr` layout; or none, as when
/// default-constructed.
class SocketAddress final {
public:
    SocketAddress() = default;

    /// Copies an address of the system. None if `size` (bytes) is not that of its family, IPv4 or
    /// IPv6.
    SocketAddress(const sockaddr* address, std::size_t size);

    bool isNone() const { return size_ == 0; }

    /// For system calls; `size` is 0 if there is none.
    const sockaddr* data() const { return reinterpret_cast<const sockaddr*>(bytes_.data()); }
    std::uint32_t size() const { return size_; }

    auto operator<=>(const SocketAddress&) const = default;

private:
    friend SocketAddress withPort(SocketAddress address, std::uint16_t port);

    static constexpr std::size_t kMaximumSize = 28; ///< that of `sockaddr_in6`

    std::uint32_t size_ = 0;
    alignas(4) std::array<std::byte, kMaximumSize> bytes_{};
};

/// Copies an address of the system, whose size is that of its family.
SocketAddress toSocketAddress(const sockaddr* address);

/// From the 4 or 16 bytes of an IPv4 or IPv6 address, in network byte order, and a port in host
/// byte order. `scope` is of IPv6 only.
SocketAddress makeSocketAddress(std::span<const std::uint8_t> address, std::uint16_t port,
                                std::uint32_t scope = 0);

/// AF_INET, AF_INET6, or AF_UNSPEC if there is none.
int familyOf(const SocketAddress& address);

bool isIPv4(const SocketAddress& address);

/// In host byte order; 0 if there is no address.
std::uint16_t portOf(const SocketAddress& address);

SocketAddress withPort(SocketAddress address, std::uint16_t port);

/// Parses a numeric host: "192.0.2.1", "::1", "[::1]", "fe80::1%eth0". None for a name.
std::optional<SocketAddress> parseNumericHost(const std::string& host, std::uint16_t port);

/// Formats the host as `parseNumericHost` accepts it, without brackets.
std::optional<std::string> numericHost(const SocketAddress& address);

/// An address without its port; IPv4-mapped IPv6 (RFC 4291, section 2.5.5.2) is stored as IPv4.
struct PlainAddress {
    bool isIPv4 = false;
    std::array<std::uint8_t, 16> bytes{};
    std::uint32_t scope = 0;

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
