#pragma once

#include "platform/values/endpoint.h"

#include <cstdint>
#include <optional>
#include <span>

namespace quillbox::dnssd {

/// Decodes an SRV record's data in wire format (RFC 2782): its port and its target, the host name
/// in presentation format, escaped, without a trailing dot. The data is untrusted: returns nothing
/// when it is not exactly one record, when the name is compressed (RFC 2782 forbids it, and there
/// is no packet to point into) or too long, or when the target is the root ("service not
/// available").
std::optional<HostEndpoint> decodeServiceLocation(std::span<const std::uint8_t> recordData);

} // namespace quillbox::dnssd
