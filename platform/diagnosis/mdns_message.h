#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace quillbox::diagnosis {

/// A multicast DNS query for PTR records (RFC 6762, section 5): for all service types, and for the
/// services of `type`, for example "_smb._tcp".
std::vector<std::byte> mdnsQuestion(std::uint16_t identifier, const std::string& type);

/// Whether it is a multicast DNS response (RFC 6762, section 18) with at least one answer.
bool isMdnsAnswer(std::span<const std::byte> message);

} // namespace quillbox::diagnosis
