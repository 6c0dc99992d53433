#pragma once

#include "platform/values/endpoint.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillbox {

/// What an smb URL points to.
struct SmbLocation {
    std::optional<std::string> user; ///< decoded
    std::string host;                ///< decoded; an IPv6 address without its brackets
    std::optional<std::uint16_t> port;
    std::string path; ///< still encoded; empty, or begins with "/"

    bool operator==(const SmbLocation&) const = default;
};

/// Parses an smb URL. nullopt unless it strictly conforms to RFC 3986 and has the form of the URLs
/// that this program generates: a host, no password, query or fragment, and decoded parts that are
/// UTF-8 without NUL.
std::optional<SmbLocation> parseSmbUrl(std::string_view url);

/// The instance name, if `host` is a service name that ends in "._smb._tcp.local": any name of at
/// most 63 bytes (RFC 6763, section 4.1.1).
std::optional<std::string> smbInstanceName(std::string_view host);

/// The URL with the same user and path at another host: an IP address (IPv6 optionally with a zone
/// identifier, RFC 6874) or a host name.
std::string smbUrlAt(const SmbLocation& location, const HostEndpoint& server);

} // namespace quillbox
