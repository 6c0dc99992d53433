#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace quillbox::dnssd {

/// What an SRV record (RFC 2782) says of a service.
struct ServiceLocation {
    std::string hostName; ///< as DNS presents it, escaped, without a dot at the end
    std::uint16_t port = 0;

    bool operator==(const ServiceLocation&) const = default;
};

/// Reads the data of an SRV record as it is on the wire. The data is any host's: nothing when it is
/// not exactly one record, when the name is compressed (RFC 2782 forbids it, and there is no packet
/// to point into) or too long, or when there is no host (the root, "not available").
std::optional<ServiceLocation> decodeServiceLocation(std::span<const std::uint8_t> recordData);

} // namespace quillbox::dnssd
