#include "bench/air.h"

#include <algorithm>

namespace quillbox::bench {

namespace {

constexpr double kNanosecondsPerSecond = 1e9;
constexpr double kSecondsPerAggregate = 1.5e-3;

/// A random number from 0 up to 1 that depends on `number` alone (the finalizer of SplitMix64).
double randomShare(std::uint64_t number)
{
    std::uint64_t mixed = (number + 1) * 0x9e3779b97f4a7c15U;
    mixed = (mixed ^ (mixed >> 30U)) * 0xbf58476d1ce4e5b9U;
    mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111ebU;
    mixed ^= mixed >> 31U;
    return static_cast<double>(mixed >> 11U) * 0x1p-53;
}

} // namespace

Aggregate aggregate(std::uint64_t bytesPerSecond, std::uint64_t number)
{
    const auto pace = static_cast<double>(bytesPerSecond);
    const auto size = std::clamp(static_cast<std::size_t>(pace * kSecondsPerAggregate),
                                 kSmallestAggregate, kLargestAggregate);
    const double airTime = static_cast<double>(size) / pace * kNanosecondsPerSecond;
    const double due = (static_cast<double>(number) + randomShare(number)) * airTime;
    return {.size = size, .due = std::chrono::nanoseconds(static_cast<std::int64_t>(due))};
}

} // namespace quillbox::bench
