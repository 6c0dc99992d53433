#include "platform/values/standard_error.h"

#include <cstddef>
#include <cstdio>

#include <utf8proc.h>

namespace quillbox {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD"; // U+FFFD

bool isHarmless(utf8proc_int32_t codePoint)
{
    switch (utf8proc_category(codePoint)) {
    case UTF8PROC_CATEGORY_CC: // control
    case UTF8PROC_CATEGORY_ZL: // line separator
    case UTF8PROC_CATEGORY_ZP: // paragraph separator
        return false;
    default:
        break;
    }
    // The explicit directional formatting characters of Unicode Standard Annex 9.
    const bool turnsDirection = (codePoint >= 0x202a && codePoint <= 0x202e)
                                || (codePoint >= 0x2066 && codePoint <= 0x2069);
    return !turnsDirection;
}

} // namespace

std::string printable(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        utf8proc_int32_t codePoint = -1;
        const auto length =
            utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                             static_cast<utf8proc_ssize_t>(text.size()), &codePoint);
        const std::size_t size = length > 0 ? static_cast<std::size_t>(length) : 1;
        if (length > 0 && isHarmless(codePoint))
            result += text.substr(0, size);
        else
            result += kReplacement;
        text.remove_prefix(size);
    }
    return result;
}

void printToStandardError(std::string_view text)
{
    const std::string line = printable(text) + '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace quillbox
