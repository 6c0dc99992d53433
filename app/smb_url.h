#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillbox {

/// What the URL of a share is made of, all of it as a user or a phone wrote it: UTF-8, not encoded.
struct SmbUrlParts {
    std::string_view user; ///< empty: no user part
    std::string_view host; ///< a name, not an address
    std::string_view share;
};

/// The URL "smb://[user@]host/share" by RFC 3986. Every byte that a part of a URL cannot hold is
/// percent-encoded, "%" among them; letters keep their case and nothing is normalised, because the
/// host is the name of a DNS-SD service. A "/" in the share separates folders and stays.
///
/// None when there is no such URL: no host, a text that is not UTF-8, or one that holds NUL, at
/// which the programs that open the URL would cut it off.
std::optional<std::string> smbUrl(const SmbUrlParts& parts);

} // namespace quillbox
