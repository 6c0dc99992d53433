#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace quillbox {

/// Parses a decimal unsigned 16-bit number: an optional "+" or "-", then at least one ASCII digit
/// and nothing else, not even blanks. After "-" only zero is valid. nullopt otherwise.
std::optional<std::uint16_t> parsePort(std::string_view text);

} // namespace quillbox
