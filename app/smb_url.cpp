#include "app/smb_url.h"

#include "platform/text.h"

namespace quillbox {

namespace {

/// The sub-delims of RFC 3986, section 2.2. They have no special meaning in the URLs made here.
constexpr std::string_view kSubDelimiters = "!$&'()*+,;=";

/// Not ":" either, which would begin a password in the user, or a port in the host.
constexpr std::string_view kNothingMore;
constexpr std::string_view kMoreInPath = "/:@";

bool isUnreserved(char character)
{
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z')
           || (character >= '0' && character <= '9')
           || std::string_view("-._~").find(character) != std::string_view::npos;
}

std::string encoded(std::string_view text, std::string_view more)
{
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string result;
    for (const char character : text) {
        if (isUnreserved(character) || kSubDelimiters.find(character) != std::string_view::npos
            || more.find(character) != std::string_view::npos) {
            result += character;
            continue;
        }
        const auto byte = static_cast<unsigned char>(character);
        result += '%';
        result += kDigits[byte >> 4U];
        result += kDigits[byte & 0xfU];
    }
    return result;
}

bool isUsable(std::string_view text)
{
    return text.find('\0') == std::string_view::npos && isValidUtf8(text);
}

} // namespace

std::optional<std::string> smbUrl(const SmbUrlParts& parts)
{
    if (parts.host.empty() || !isUsable(parts.user) || !isUsable(parts.host)
        || !isUsable(parts.share))
        return std::nullopt;
    std::string url = "smb://";
    if (!parts.user.empty())
        url += encoded(parts.user, kNothingMore) + '@';
    url += encoded(parts.host, kNothingMore);
    url += '/' + encoded(parts.share, kMoreInPath);
    return url;
}

} // namespace quillbox
