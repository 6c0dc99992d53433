#include "platform/desktop/opening/smb_location.h"

#include "platform/values/text.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include <arpa/inet.h>

namespace quillbox {

namespace {

constexpr std::string_view kScheme = "smb://";
constexpr std::string_view kServiceSuffix = "._smb._tcp.local";
constexpr std::size_t kLongestInstanceName = 63;
constexpr std::uint16_t kSmbPort = 445;

constexpr std::string_view kMoreInPath = "/:@";

bool holds(std::string_view characters, char character)
{
    return characters.find(character) != std::string_view::npos;
}

std::optional<unsigned> hexDigit(char character)
{
    unsigned value = 0;
    const auto [end, error] = std::from_chars(&character, &character + 1, value, 16);
    if (error != std::errc())
        return std::nullopt;
    return value;
}

/// Decodes percent-encoding. nullopt if the text contains a character that must be encoded, other
/// than those in `more`, or if it decodes to invalid UTF-8 or contains NUL.
std::optional<std::string> decoded(std::string_view text, std::string_view more = {})
{
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char character = text[at];
        if (character != '%') {
            if (!holds(kUnreservedInUrls, character) && !holds(kSubDelimitersInUrls, character)
                && !holds(more, character))
                return std::nullopt;
            result += character;
            continue;
        }
        if (at + 2 >= text.size())
            return std::nullopt;
        const auto high = hexDigit(text[at + 1]);
        const auto low = hexDigit(text[at + 2]);
        if (!high || !low)
            return std::nullopt;
        result += static_cast<char>(*high * 16 + *low);
        at += 2;
    }
    if (holds(result, '\0') || !isValidUtf8(result))
        return std::nullopt;
    return result;
}

bool isIpv6Address(std::string_view text)
{
    in6_addr address{};
    return inet_pton(AF_INET6, std::string(text).c_str(), &address) == 1;
}

/// Decodes what is between the brackets: an IPv6 address, optionally with "%25" and a zone
/// identifier (RFC 6874).
std::optional<std::string> decodedAddress(std::string_view text)
{
    const auto scopeMark = text.find('%');
    if (!isIpv6Address(text.substr(0, scopeMark)))
        return std::nullopt;
    if (scopeMark == std::string_view::npos)
        return std::string(text);
    if (!text.substr(scopeMark).starts_with("%25") || text.size() == scopeMark + 3)
        return std::nullopt;
    const auto scope = decoded(text.substr(scopeMark + 3));
    if (!scope)
        return std::nullopt;
    return std::string(text.substr(0, scopeMark)) + '%' + *scope;
}

/// Parses "host" or "host:port" into `location`; false if it is neither.
bool parseHostAndPort(std::string_view text, SmbLocation& location)
{
    const bool isBracketed = text.starts_with('[');
    const auto bracket = isBracketed ? text.find(']') : 0;
    if (bracket == std::string_view::npos)
        return false;
    const auto colon = text.find(':', bracket);
    const std::string_view hostText = text.substr(0, colon);
    if (isBracketed && bracket + 1 != hostText.size())
        return false;
    const auto host =
        isBracketed ? decodedAddress(hostText.substr(1, bracket - 1)) : decoded(hostText);
    if (!host || host->empty())
        return false;
    location.host = *host;
    if (colon == std::string_view::npos)
        return true;
    const std::string_view digits = text.substr(colon + 1);
    // A URL has no sign there.
    if (digits.find_first_of("+-") == std::string_view::npos)
        location.port = parsePort(digits);
    return location.port.value_or(0) != 0;
}

} // namespace

std::optional<SmbLocation> parseSmbUrl(std::string_view url)
{
    if (!url.starts_with(kScheme))
        return std::nullopt;
    url.remove_prefix(kScheme.size());
    const auto slash = url.find('/');
    std::string_view authority = url.substr(0, slash);

    SmbLocation location;
    if (slash != std::string_view::npos)
        location.path = url.substr(slash);
    if (!decoded(location.path, kMoreInPath))
        return std::nullopt;
    const auto at = authority.find('@');
    if (at != std::string_view::npos) {
        location.user = decoded(authority.substr(0, at));
        if (!location.user)
            return std::nullopt;
        authority.remove_prefix(at + 1);
    }
    if (!parseHostAndPort(authority, location))
        return std::nullopt;
    return location;
}

std::optional<std::string> smbInstanceName(std::string_view host)
{
    if (host.size() <= kServiceSuffix.size())
        return std::nullopt;
    const std::size_t length = host.size() - kServiceSuffix.size();
    // DNS names are compared without regard to the case of ASCII letters (RFC 4343).
    const auto isSame = [](char a, char b) {
        return a == b || (a >= 'A' && a <= 'Z' && static_cast<char>(a - 'A' + 'a') == b);
    };
    const std::string_view suffix = host.substr(length);
    if (length > kLongestInstanceName
        || !std::equal(suffix.begin(), suffix.end(), kServiceSuffix.begin(), isSame))
        return std::nullopt;
    return std::string(host.substr(0, length));
}

std::string smbUrlAt(const SmbLocation& location, const HostEndpoint& server)
{
    const std::string_view host = server.host;
    const auto scopeMark = host.find('%');
    std::string url(kScheme);
    if (location.user)
        url += percentEncoded(*location.user, kSubDelimitersInUrls) + '@';
    if (isIpv6Address(host.substr(0, scopeMark))) {
        url += '[' + std::string(host.substr(0, scopeMark));
        if (scopeMark != std::string_view::npos && scopeMark + 1 < host.size())
            url += "%25" + percentEncoded(host.substr(scopeMark + 1), kSubDelimitersInUrls);
        url += ']';
    } else {
        url += percentEncoded(host, kSubDelimitersInUrls);
    }
    if (server.port != kSmbPort)
        url += ':' + std::to_string(server.port);
    return url + location.path;
}

} // namespace quillbox
