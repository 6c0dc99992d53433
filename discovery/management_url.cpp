#include "discovery/management_url.h"

#include "platform/text.h"

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

/// The text with U+FFFD in place of each byte that is not part of valid UTF-8, as URLs are UTF-8.
std::string withValidUtf8(std::string_view text)
{
    constexpr std::size_t kLongest = 4;
    std::string result;
    while (!text.empty()) {
        std::size_t size = 1;
        while (size < kLongest && !isValidUtf8(text.substr(0, size)))
            ++size;
        const auto character = text.substr(0, size);
        const bool isValid = isValidUtf8(character);
        result += isValid ? character : std::string_view("\xef\xbf\xbd");
        text.remove_prefix(isValid ? character.size() : 1);
    }
    return result;
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
    return host ? std::optional(urlOfNumericHost(*host, port)) : std::nullopt;
}

std::string urlOfNumericHost(std::string_view numericHost, std::uint16_t port)
{
    std::string authority(numericHost);
    if (numericHost.find(':') != std::string_view::npos) {
        const auto zone = numericHost.find('%');
        authority = '[' + std::string(numericHost.substr(0, zone));
        if (zone != std::string_view::npos)
            authority += "%25" + percentEncoded(withValidUtf8(numericHost.substr(zone + 1)));
        authority += ']';
    }
    return "https://" + authority + ':' + std::to_string(port) + '/';
}

} // namespace quillbox
