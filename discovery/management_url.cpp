#include "discovery/management_url.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include <netdb.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

constexpr std::size_t kHostBufferSize = 1025; // NI_MAXHOST

bool isIPv4(const SocketAddress& address)
{
    sa_family_t family = AF_UNSPEC;
    if (address.size() < sizeof family)
        return false;
    std::memcpy(&family, address.data() + offsetof(sockaddr, sa_family), sizeof family);
    return family == AF_INET;
}

std::optional<std::string> numericHost(const SocketAddress& address)
{
    // A copy of maximum size and correct alignment, since the bytes may be short or misaligned.
    sockaddr_storage storage{};
    if (address.empty() || address.size() > sizeof storage)
        return std::nullopt;
    std::memcpy(&storage, address.data(), address.size());
    std::array<char, kHostBufferSize> host{};
    const int failure = getnameinfo(
        reinterpret_cast<const sockaddr*>(&storage), static_cast<socklen_t>(address.size()),
        host.data(), static_cast<socklen_t>(host.size()), nullptr, 0, NI_NUMERICHOST);
    if (failure != 0 || host.front() == '\0')
        return std::nullopt;
    return std::string(host.data());
}

/// Needed for the zone: an interface name, which may contain almost any byte.
std::string percentEncoded(std::string_view text)
{
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    constexpr std::string_view kUnreserved = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                             "0123456789-._~";
    std::string result;
    for (const char character : text) {
        if (kUnreserved.find(character) != std::string_view::npos) {
            result += character;
            continue;
        }
        const auto byte = static_cast<unsigned char>(character);
        result += '%';
        result += kDigits[byte >> 4U];
        result += kDigits[byte & 0x0fU];
    }
    return result;
}

} // namespace

std::vector<SocketAddress> ipv4First(std::vector<SocketAddress> addresses)
{
    std::stable_partition(addresses.begin(), addresses.end(), isIPv4);
    return addresses;
}

std::optional<std::string> managementUrl(const SocketAddress& address, std::uint16_t port)
{
    const auto host = numericHost(address);
    if (!host)
        return std::nullopt;
    std::string authority = *host;
    if (host->find(':') != std::string::npos) {
        const auto zone = host->find('%');
        authority = '[' + host->substr(0, zone);
        if (zone != std::string::npos)
            authority += "%25" + percentEncoded(std::string_view(*host).substr(zone + 1));
        authority += ']';
    }
    return "https://" + authority + ':' + std::to_string(port) + '/';
}

} // namespace quillbox
