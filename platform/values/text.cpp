#include "platform/values/text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <system_error>

#include <utf8proc.h>

namespace quillbox {

namespace {

const utf8proc_uint8_t* bytesOf(std::string_view text)
{
    return reinterpret_cast<const utf8proc_uint8_t*>(text.data());
}

/// The characters with the Unicode property White_Space, and U+200B, which had that property in
/// early Unicode versions and is still trimmed by desktop text fields.
bool isWhitespace(utf8proc_int32_t codePoint)
{
    switch (codePoint) {
    case 0x20:
    case 0x85:
    case 0xa0:
    case 0x1680:
    case 0x2028:
    case 0x2029:
    case 0x202f:
    case 0x205f:
    case 0x3000:
        return true;
    default:
        return (codePoint >= 0x09 && codePoint <= 0x0d)
               || (codePoint >= 0x2000 && codePoint <= 0x200b);
    }
}

/// A decoded character; bytes that are not UTF-8 have code point -1 and length 1.
struct Character {
    utf8proc_int32_t codePoint = -1;
    std::size_t length = 1;
};

Character characterAt(std::string_view text, std::size_t position)
{
    Character character;
    const auto length = utf8proc_iterate(bytesOf(text) + position,
                                         static_cast<utf8proc_ssize_t>(text.size() - position),
                                         &character.codePoint);
    if (length > 0)
        character.length = static_cast<std::size_t>(length);
    return character;
}

std::size_t startOfLastCharacter(std::string_view text)
{
    std::size_t start = text.size() - 1;
    while (start > 0 && (static_cast<unsigned char>(text[start]) & 0xc0U) == 0x80U)
        --start;
    return start;
}

/// The text in another form; unchanged if it is not valid UTF-8.
std::string mapped(std::string_view text, int options)
{
    utf8proc_uint8_t* result = nullptr;
    const auto length = utf8proc_map(bytesOf(text), static_cast<utf8proc_ssize_t>(text.size()),
                                     &result, static_cast<utf8proc_option_t>(options));
    const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owned(result, &std::free);
    if (length < 0)
        return std::string(text);
    return {reinterpret_cast<const char*>(result), static_cast<std::size_t>(length)};
}

} // namespace

std::string normalized(std::string_view text)
{
    // ASCII is already in NFC, and most names are ASCII.
    if (std::ranges::all_of(text,
                            [](char byte) { return static_cast<unsigned char>(byte) < 0x80; }))
        return std::string(text);
    return mapped(text, UTF8PROC_STABLE | UTF8PROC_COMPOSE);
}

std::string withoutMarks(std::string_view text)
{
    return mapped(text, UTF8PROC_STABLE | UTF8PROC_DECOMPOSE | UTF8PROC_COMPAT | UTF8PROC_CASEFOLD
                            | UTF8PROC_STRIPMARK | UTF8PROC_IGNORE);
}

bool canonicallyEqual(std::string_view a, std::string_view b)
{
    return a == b || normalized(a) == normalized(b);
}

bool canonicallyHasPrefix(std::string_view text, std::string_view prefix)
{
    const std::string whole = normalized(text);
    const std::string start = normalized(prefix);
    if (!whole.starts_with(start))
        return false;
    if (whole.size() == start.size() || start.empty())
        return true;
    // A prefix ends at a grapheme cluster boundary: "Quillbox " followed by a combining accent does
    // not begin with "Quillbox ".
    const auto before = characterAt(start, startOfLastCharacter(start)).codePoint;
    const auto after = characterAt(whole, start.size()).codePoint;
    return before < 0 || after < 0 || utf8proc_grapheme_break(before, after);
}

bool CanonicalLess::operator()(std::string_view a, std::string_view b) const
{
    return normalized(a) < normalized(b);
}

std::uint64_t stableHash(std::string_view text)
{
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const char character : text) {
        hash ^= static_cast<unsigned char>(character);
        hash *= 0x100000001b3U;
    }
    return hash;
}

bool isValidUtf8(std::string_view text)
{
    while (!text.empty()) {
        const Character first = characterAt(text, 0);
        if (first.codePoint < 0)
            return false;
        text.remove_prefix(first.length);
    }
    return true;
}

std::string_view truncated(std::string_view text, std::size_t size)
{
    if (text.size() <= size)
        return text;
    std::size_t end = size;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0U) == 0x80U)
        --end;
    return text.substr(0, end);
}

std::string trimmed(std::string_view text)
{
    while (!text.empty()) {
        const Character first = characterAt(text, 0);
        if (!isWhitespace(first.codePoint))
            break;
        text.remove_prefix(first.length);
    }
    while (!text.empty()) {
        const std::size_t last = startOfLastCharacter(text);
        if (!isWhitespace(characterAt(text, last).codePoint))
            break;
        text = text.substr(0, last);
    }
    return std::string(text);
}

std::string_view takePart(std::string_view& text, char separator)
{
    const std::string_view part = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(text.size(), part.size() + 1));
    return part;
}

std::string inDoubleQuotes(std::string_view name)
{
    return '"' + std::string(name) + '"';
}

std::optional<std::uint16_t> parsePort(std::string_view text)
{
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+'))
        text.remove_prefix(1);
    std::uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc() || stop != end || (isNegative && port != 0))
        return std::nullopt;
    return port;
}

std::string percentEncoded(std::string_view text, std::string_view more)
{
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string result;
    for (const char character : text) {
        if (kUnreservedInUrls.find(character) != std::string_view::npos
            || more.find(character) != std::string_view::npos) {
            result += character;
            continue;
        }
        const auto byte = static_cast<unsigned char>(character);
        result += '%';
        result += kDigits[byte >> 4U];
        result += kDigits[byte & 0x0fU];
    }
    return result;
}

} // namespace quillbox
