#pragma once

#include "platform/endpoint.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillbox {

/// What an smb URL points to.
struct SmbLocation {
    std::optional<std::string> user; ///< decoded
    std::string host;                ///< decoded; a numeric IPv6 address without its brackets
    std::optional<std::uint16_t> port;
    std::string path; ///< as it stands in the URL; empty, or with "/" at its beginning

    bool operator==(const SmbLocation&) const = default;
};

/// The parts of a URL of scheme "smb". None unless it is one by RFC 3986, to the letter, and of the
/// kind that this program makes: with a host, without a password, a query or a fragment, and its
/// decoded parts UTF-8 without NUL.
std::optional<SmbLocation> parseSmbUrl(std::string_view url);

/// The instance name of the service that `host` names, if it ends in "._smb._tcp.local": any name
/// of at most 63 bytes (RFC 6763, section 4.1.1).
std::optional<std::string> smbInstanceName(std::string_view host);

/// The URL of the same user and path at another host, which is an address in numbers (for IPv6 with
/// a scope if need be; RFC 6874) or a name.
std::string smbUrlAt(const SmbLocation& location, const HostEndpoint& server);

} // namespace quillbox
