#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace quillbox::dnssd {

/// Port and target of an SRV record (RFC 2782).
struct ServiceLocation {
    std::string hostName; ///< in presentation format, escaped, without a trailing dot
    std::uint16_t port = 0;

    bool operator==(const ServiceLocation&) const = default;
};

/// Decodes an SRV record's data in wire format. The data is untrusted: returns nothing when it is
/// not exactly one record, when the name is compressed (RFC 2782 forbids it, and there is no packet
/// to point into) or too long, or when the target is the root ("service not available").
std::optional<ServiceLocation> decodeServiceLocation(std::span<const std::uint8_t> recordData);

} // namespace quillbox::dnssd
