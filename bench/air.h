#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace quillbox::bench {

/// A burst of bytes, and when it is sent after the beginning of the transfer.
struct Aggregate {
    std::size_t size = 0;
    std::chrono::nanoseconds due{};
};

/// The bounds of an aggregate's size.
constexpr std::size_t kSmallestAggregate = 30UL << 10;
constexpr std::size_t kLargestAggregate = 120UL << 10;

/// The aggregate with that number, counted from 0, of a Wi-Fi that carries `bytesPerSecond`.
///
/// Wi-Fi sends aggregates of many frames (A-MPDU) with silence in between. Each has the size that
/// the pace carries in 1.5 ms, within the bounds above, and occupies the air as long as the pace
/// takes for that size. When others use the air is beyond the sender's control, so each aggregate
/// is sent at a random moment of its time. The moments are always the same ones: every relay gets
/// the same sequence. The mean pace is exact at any length.
Aggregate aggregate(std::uint64_t bytesPerSecond, std::uint64_t number);

} // namespace quillbox::bench
