#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace quillbox {

/// The NFC form of a UTF-8 text (Unicode Standard Annex 15). Text that is not valid UTF-8 is
/// returned unchanged.
std::string normalized(std::string_view text);

/// Whether two texts are canonically equivalent.
bool canonicallyEqual(std::string_view a, std::string_view b);

/// Whether `text` begins with `prefix` under canonical equivalence. A prefix that ends right before
/// a combining mark of `text` does not match.
bool canonicallyHasPrefix(std::string_view text, std::string_view prefix);

/// Orders texts by the UTF-8 bytes of their NFC forms, which is code-point order. For maps and sets
/// keyed by names.
struct CanonicalLess {
    bool operator()(std::string_view a, std::string_view b) const;
};

/// The text in lower case (full case folding), in compatibility form and without combining marks:
/// "Küche" becomes "kuche". Letters that are not based on others, such as Cyrillic ones,
/// remain. Text that is not valid UTF-8 is returned unchanged.
std::string withoutMarks(std::string_view text);

/// A hash of the bytes (64-bit FNV-1a): the same on every computer and in every version.
std::uint64_t stableHash(std::string_view text);

/// Whether `text` is UTF-8 as defined by RFC 3629: no surrogates, no overlong forms.
bool isValidUtf8(std::string_view text);

/// The longest prefix of a UTF-8 text that has at most `size` bytes and does not split a code
/// point.
std::string_view truncated(std::string_view text, std::size_t size);

/// Removes white space and line breaks (Unicode property White_Space, and the zero width space
/// U+200B) at both ends. Stops at bytes that are not valid UTF-8.
std::string trimmed(std::string_view text);

/// Removes the first of the parts that `separator` separates, and returns it without the separator.
std::string_view takePart(std::string_view& text, char separator);

/// The same for the first line of the text.
inline std::string_view takeLine(std::string_view& text)
{
    return takePart(text, '\n');
}

/// `name` between double quotation marks, verbatim. (Not called `quoted`: std::quoted would win by
/// argument-dependent lookup.)
std::string inDoubleQuotes(std::string_view name);

/// Parses a decimal unsigned 16-bit number: an optional "+" or "-", then at least one ASCII digit
/// and nothing else, not even blanks. After "-" only zero is valid. nullopt otherwise.
std::optional<std::uint16_t> parsePort(std::string_view text);

/// The enumerator of that name; `names` has those of all, in their order.
template <typename Value>
std::optional<Value> valueNamed(std::string_view name, std::span<const std::string_view> names)
{
    const auto found = std::find(names.begin(), names.end(), name);
    return found == names.end() ? std::nullopt
                                : std::optional(static_cast<Value>(found - names.begin()));
}

/// The characters that have no special meaning anywhere in a URL, and those that have one only
/// where a scheme gives them one, as http and smb do not (RFC 3986, sections 2.3 and 2.2).
inline constexpr std::string_view kUnreservedInUrls =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
inline constexpr std::string_view kSubDelimitersInUrls = "!$&'()*+,;=";

/// Percent-encodes every byte but unreserved characters and those in `more`.
std::string percentEncoded(std::string_view text, std::string_view more = {});

} // namespace quillbox
