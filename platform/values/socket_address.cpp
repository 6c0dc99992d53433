#include "platform/values/socket_address.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

bool isAll(const PlainAddress& address, std::uint8_t value, std::size_t count)
{
    return std::all_of(address.bytes.begin(),
                       address.bytes.begin() + static_cast<std::ptrdiff_t>(count),
                       [value](std::uint8_t byte) { return byte == value; });
}

} // namespace

SocketAddress::SocketAddress(const sockaddr* address, std::size_t size)
{
    static_assert(kMaximumSize == sizeof(sockaddr_in6) && alignof(sockaddr_in6) == 4);
    const bool isValid = (size == sizeof(sockaddr_in) && address->sa_family == AF_INET)
                         || (size == sizeof(sockaddr_in6) && address->sa_family == AF_INET6);
    if (!isValid)
        return;
    size_ = static_cast<std::uint32_t>(size);
    std::memcpy(bytes_.data(), address, size);
}

SocketAddress toSocketAddress(const sockaddr* address)
{
    return {address, address->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in)};
}

SocketAddress makeSocketAddress(std::span<const std::uint8_t> address, std::uint16_t port,
                                std::uint32_t scope)
{
    sockaddr_in ipv4{};
    sockaddr_in6 ipv6{};
    if (address.size() == sizeof ipv4.sin_addr) {
        ipv4.sin_family = AF_INET;
        ipv4.sin_port = htons(port);
        std::memcpy(&ipv4.sin_addr, address.data(), address.size());
        return toSocketAddress(reinterpret_cast<const sockaddr*>(&ipv4));
    }
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_port = htons(port);
    ipv6.sin6_scope_id = scope;
    std::memcpy(&ipv6.sin6_addr, address.data(), sizeof ipv6.sin6_addr);
    return toSocketAddress(reinterpret_cast<const sockaddr*>(&ipv6));
}

int familyOf(const SocketAddress& address)
{
    return address.data()->sa_family;
}

bool isIPv4(const SocketAddress& address)
{
    return familyOf(address) == AF_INET;
}

std::uint16_t portOf(const SocketAddress& address)
{
    // The port is at the same offset in both families.
    static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
    return ntohs(reinterpret_cast<const sockaddr_in*>(address.data())->sin_port);
}

SocketAddress withPort(SocketAddress address, std::uint16_t port)
{
    if (!address.isNone())
        reinterpret_cast<sockaddr_in*>(address.bytes_.data())->sin_port = htons(port);
    return address;
}

std::optional<SocketAddress> parseNumericHost(const std::string& host, std::uint16_t port)
{
    const bool isBracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    const std::string bare = isBracketed ? host.substr(1, host.size() - 2) : host;
    addrinfo hints{};
    hints.ai_family = isBracketed ? AF_INET6 : AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo* found = nullptr;
    if (bare.empty() || ::getaddrinfo(bare.c_str(), nullptr, &hints, &found) != 0)
        return std::nullopt;
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
    return withPort(toSocketAddress(found->ai_addr), port);
}

std::optional<std::string> numericHost(const SocketAddress& address)
{
    std::array<char, NI_MAXHOST> host{};
    if (address.isNone()
        || ::getnameinfo(address.data(), address.size(), host.data(),
                         static_cast<socklen_t>(host.size()), nullptr, 0, NI_NUMERICHOST)
               != 0)
        return std::nullopt;
    return std::string(host.data());
}

std::optional<PlainAddress> PlainAddress::of(const SocketAddress& address)
{
    PlainAddress plain;
    switch (familyOf(address)) {
    case AF_INET:
        plain.isIPv4 = true;
        std::memcpy(plain.bytes.data(),
                    &reinterpret_cast<const sockaddr_in*>(address.data())->sin_addr, 4);
        return plain;
    case AF_INET6: {
        const auto& ipv6 = *reinterpret_cast<const sockaddr_in6*>(address.data());
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

bool PlainAddress::isLoopback() const
{
    return isIPv4 ? bytes[0] == 127 : isAll(*this, 0, 15) && bytes[15] == 1;
}

bool PlainAddress::isUnspecified() const
{
    return isIPv4 ? bytes[0] == 0 : isAll(*this, 0, 16);
}

bool PlainAddress::isMulticastOrBroadcast() const
{
    return isIPv4 ? (bytes[0] & 0xf0) == 0xe0 || isAll(*this, 0xff, 4) : bytes[0] == 0xff;
}

bool isLoopback(const SocketAddress& address)
{
    const auto plain = PlainAddress::of(address);
    return plain && plain->isLoopback();
}

bool isSameHost(const SocketAddress& a, const SocketAddress& b)
{
    const auto one = PlainAddress::of(a);
    const auto other = PlainAddress::of(b);
    return one && other && one->isIPv4 == other->isIPv4 && one->bytes == other->bytes
           && (one->scope == 0 || other->scope == 0 || one->scope == other->scope);
}

} // namespace quillbox
