#include "tests/fakes/socket_addresses.h"

#include <arpa/inet.h>
#include <netinet/in.h>

namespace quillbox {

SocketAddress ipv4Address(const std::string& text, std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, text.c_str(), &address.sin_addr);
    return toSocketAddress(reinterpret_cast<const sockaddr*>(&address));
}

SocketAddress ipv6Address(const std::string& text, std::uint32_t scope, std::uint16_t port)
{
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    address.sin6_scope_id = scope;
    inet_pton(AF_INET6, text.c_str(), &address.sin6_addr);
    return toSocketAddress(reinterpret_cast<const sockaddr*>(&address));
}

} // namespace quillbox
