#pragma once

#include <array>
#include <compare>
#include <cstdint>

namespace quillbox {

/// A UUID (RFC 4122): its 128 bits in order, each word with its most significant bit first.
struct Uuid {
    std::array<std::uint32_t, 4> words{};

    friend auto operator<=>(const Uuid&, const Uuid&) = default;
};

/// Generates a random UUID (version 4).
Uuid makeUuid();

} // namespace quillbox
