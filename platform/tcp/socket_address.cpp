#include "platform/tcp/socket_address.h"

#include <array>
#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace quillbox {

int familyOf(const SocketAddress& address)
{
    sa_family_t family = AF_UNSPEC;
    if (address.size() < sizeof(sockaddr_in))
        return AF_UNSPEC;
    std::memcpy(&family, address.data() + offsetof(sockaddr, sa_family), sizeof family);
    if (family == AF_INET && address.size() == sizeof(sockaddr_in))
        return AF_INET;
    if (family == AF_INET6 && address.size() == sizeof(sockaddr_in6))
        return AF_INET6;
    return AF_UNSPEC;
}

std::uint16_t portOf(const SocketAddress& address)
{
    if (familyOf(address) == AF_UNSPEC)
        return 0;
    // The port is at the same offset in both families.
    static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
    in_port_t port = 0;
    std::memcpy(&port, address.data() + offsetof(sockaddr_in, sin_port), sizeof port);
    return ntohs(port);
}

SocketAddress withPort(SocketAddress address, std::uint16_t port)
{
    if (familyOf(address) == AF_UNSPEC)
        return address;
    const in_port_t networkOrder = htons(port);
    std::memcpy(address.data() + offsetof(sockaddr_in, sin_port), &networkOrder,
                sizeof networkOrder);
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
    SocketAddress result(found->ai_addrlen);
    std::memcpy(result.data(), found->ai_addr, found->ai_addrlen);
    return withPort(std::move(result), port);
}

std::optional<std::string> numericHost(const SocketAddress& address)
{
    std::array<char, NI_MAXHOST> host{};
    if (familyOf(address) == AF_UNSPEC
        || ::getnameinfo(reinterpret_cast<const sockaddr*>(address.data()),
                         static_cast<socklen_t>(address.size()), host.data(),
                         static_cast<socklen_t>(host.size()), nullptr, 0, NI_NUMERICHOST)
               != 0)
        return std::nullopt;
    return std::string(host.data());
}

} // namespace quillbox
