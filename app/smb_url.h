#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillbox {

/// The parts of a share's URL, as entered by the user or announced by a phone: UTF-8, not encoded.
struct SmbUrlParts {
    std::string_view user; ///< empty: no user part
    std::string_view host; ///< a name, not an address
    std::string_view share;
};

/// The URL "smb://[user@]host/share" (RFC 3986). Every byte that is not allowed in its part of the
/// URL is percent-encoded, including "%"; letters keep their case and nothing is normalised,
/// because the host is the name of a DNS-SD service. A "/" in the share separates folders and
/// stays.
///
/// nullopt if there is no host, or if a part is not UTF-8 or contains NUL, at which the programs
/// that open the URL would truncate it.
std::optional<std::string> smbUrl(const SmbUrlParts& parts);

} // namespace quillbox
