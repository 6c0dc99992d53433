#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace quillbox::diagnosis {

/// A multicast DNS question for pointers (RFC 6762, section 5): for all types of services, and for
/// the services of `type`, which is like "_smb._tcp".
std::vector<std::byte> mdnsQuestion(std::uint16_t identifier, const std::string& type);

/// Whether it is a response of multicast DNS (RFC 6762, section 18) that holds an answer.
bool isMdnsAnswer(std::span<const std::byte> message);

} // namespace quillbox::diagnosis
