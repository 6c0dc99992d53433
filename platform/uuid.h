#pragma once

#include <array>
#include <compare>
#include <cstdint>

namespace quillbox {

/// A UUID (RFC 4122): its 128 bits from the first to the last, the highest of a word first.
struct Uuid {
    std::array<std::uint32_t, 4> words{};

    friend auto operator<=>(const Uuid&, const Uuid&) = default;
};

/// A fresh random one (version 4).
Uuid makeUuid();

} // namespace quillbox
