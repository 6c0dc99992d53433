#include "app/smb_url.h"

#include "platform/values/text.h"

namespace quillbox {

namespace {

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
    // Without ":", which would begin a password in the user, or a port in the host.
    if (!parts.user.empty())
        url += percentEncoded(parts.user, kSubDelimitersInUrls) + '@';
    url += percentEncoded(parts.host, kSubDelimitersInUrls);
    url += '/' + percentEncoded(parts.share, std::string(kSubDelimitersInUrls) + "/:@");
    return url;
}

} // namespace quillbox
