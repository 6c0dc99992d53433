#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quillbox {

/// The NFC form of a UTF-8 text (Unicode Standard Annex 15). Text that is not valid UTF-8 comes
/// back as it is.
std::string normalized(std::string_view text);

/// Whether two texts are the same under canonical equivalence.
bool canonicallyEqual(std::string_view a, std::string_view b);

/// Whether `text` begins with `prefix` under canonical equivalence: a prefix that ends before a
/// combining mark of `text` does not count.
bool canonicallyHasPrefix(std::string_view text, std::string_view prefix);

/// Orders texts by the UTF-8 bytes of their NFC forms, which is code-point order. For maps and sets
/// whose keys are names.
struct CanonicalLess {
    bool operator()(std::string_view a, std::string_view b) const;
};

/// Whether `text` is UTF-8 as RFC 3629 defines it: no surrogates, nothing overlong.
bool isValidUtf8(std::string_view text);

/// The longest beginning of a UTF-8 text that has at most `size` bytes and ends between characters.
std::string_view truncated(std::string_view text, std::size_t size);

/// Without the white space and line breaks (Unicode property White_Space, and the zero width space
/// U+200B) at both ends. Text that is not valid UTF-8 loses ASCII white space only.
std::string trimmed(std::string_view text);

/// `name` between double quotation marks, verbatim. (Not called `quoted`: std::quoted would win by
/// argument-dependent lookup.)
std::string inDoubleQuotes(std::string_view name);

} // namespace quillbox
