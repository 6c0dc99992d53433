#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// The rules of DNS-SD and multicast DNS for names, and how names are derived from others.
namespace quillbox::dnssd {

/// The maximum size of a label in bytes (RFC 1035, section 2.3.4).
inline constexpr std::size_t kMaximumLabelSize = 63;

/// Whether `name` is valid as a service instance name (RFC 6763, section 4.1.1): 1 to 63 bytes of
/// UTF-8. Zero bytes, which the engines cannot carry, are rejected too.
bool isInstanceName(std::string_view name);

/// Whether `type` is a service type like "_smb._tcp" (RFC 6763, section 7). Labels may be as long
/// as DNS allows.
bool isServiceType(std::string_view type);

/// The form of a DNS name to use as a key. The comparison ignores the case of ASCII letters, and of
/// no others (RFC 6762, section 16).
std::string folded(std::string_view name);
bool isSameName(std::string_view a, std::string_view b);

/// The name to try after `number` - 1 conflicts: "Name", "Name #2", "Name #3", and so on, truncated
/// between characters to fit into a label.
std::string alternativeName(std::string_view name, unsigned number);

/// The number to try after another conflict: after 99,999 it starts over at 2.
unsigned numberAfter(unsigned number);

/// Turns text into lower-case ASCII letters, digits and single hyphens, at most `size` characters,
/// with no hyphen at either end; empty when nothing of the text is left. A letter with a
/// diacritical mark becomes the letter, and any other sequence of characters a hyphen.
std::string hostSlug(std::string_view text, std::size_t size);

} // namespace quillbox::dnssd
