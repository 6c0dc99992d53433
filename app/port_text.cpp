#include "app/port_text.h"

#include <limits>

namespace quillbox {

std::optional<std::uint16_t> parsePort(std::string_view text)
{
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+'))
        text.remove_prefix(1);
    if (text.empty())
        return std::nullopt;
    std::uint32_t value = 0;
    for (const char character : text) {
        if (character < '0' || character > '9')
            return std::nullopt;
        value = value * 10 + static_cast<std::uint32_t>(character - '0');
        if (value > std::numeric_limits<std::uint16_t>::max() || (isNegative && value > 0))
            return std::nullopt;
    }
    return static_cast<std::uint16_t>(value);
}

} // namespace quillbox
