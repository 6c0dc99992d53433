#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace quillbox {

/// Reads a decimal number of 16 bits without sign: an optional single "+" or "-", then at least one
/// ASCII digit and nothing else, a blank included; behind a "-" only zero fits. None otherwise.
std::optional<std::uint16_t> parsePort(std::string_view text);

} // namespace quillbox
