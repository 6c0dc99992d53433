#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// What DNS-SD and multicast DNS demand of names, and how names are made from others.
namespace quillbox::dnssd {

/// The greatest size of a label in bytes (RFC 1035, section 2.3.4).
inline constexpr std::size_t kMaximumLabelSize = 63;

/// Whether `name` can be a service instance name (RFC 6763, section 4.1.1): 1 to 63 bytes of UTF-8.
/// A zero byte, which the engines cannot carry, is refused too.
bool isInstanceName(std::string_view name);

/// Whether `type` is like "_smb._tcp" (RFC 6763, section 7). Labels may be as long as DNS allows.
bool isServiceType(std::string_view type);

/// DNS names compare without regard to the case of ASCII letters, and of no others (RFC 6762,
/// section 16): the form that serves as a key.
std::string folded(std::string_view name);
bool isSameName(std::string_view a, std::string_view b);

/// The name to try after `number` - 1 collisions: "Name", "Name #2", "Name #3", and so on, cut
/// between characters so that it stays a label.
std::string alternativeName(std::string_view name, unsigned number);

/// Lower-case letters, digits and single hyphens for any text, at most `size` of them, with no
/// hyphen at either end; empty when nothing of the text is left.
std::string hostSlug(std::string_view text, std::size_t size);

} // namespace quillbox::dnssd
