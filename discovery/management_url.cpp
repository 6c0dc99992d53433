#include "discovery/management_url.h"

#include "platform/values/text.h"

#include <string_view>

namespace quillbox {

namespace {

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

} // namespace

std::optional<std::string> managementUrl(const SocketAddress& address)
{
    const auto host = numericHost(address);
    return host ? std::optional(urlOfNumericHost(*host, portOf(address))) : std::nullopt;
}

std::string urlOfNumericHost(std::string_view numericHost, std::uint16_t port)
{
    std::string authority(numericHost);
    if (numericHost.find(':') != std::string_view::npos) {
        const auto zone = numericHost.find('%');
        authority = '[' + std::string(numericHost.substr(0, zone));
        if (zone != std::string_view::npos)
            // An interface name, which may contain almost any byte.
            authority += "%25" + percentEncoded(withValidUtf8(numericHost.substr(zone + 1)));
        authority += ']';
    }
    return "https://" + authority + ':' + std::to_string(port) + '/';
}

} // namespace quillbox
