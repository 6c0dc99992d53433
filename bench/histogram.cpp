#include "bench/histogram.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <functional>

namespace quillbox::bench {

void Histogram::add(std::chrono::nanoseconds duration)
{
    const auto nanoseconds =
        static_cast<std::uint64_t>(std::max<std::int64_t>(duration.count(), 0));
    ++counts_.at(classOf(nanoseconds));
    ++count_;
}

void Histogram::add(const Histogram& other)
{
    std::ranges::transform(counts_, other.counts_, counts_.begin(), std::plus());
    count_ += other.count_;
}

std::chrono::nanoseconds Histogram::percentile(double share) const
{
    const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(count_)));
    std::uint64_t seen = 0;
    for (std::size_t index = 0; index < counts_.size(); ++index) {
        seen += counts_.at(index);
        if (seen >= std::max<std::uint64_t>(wanted, 1))
            return std::chrono::nanoseconds(upperEndOf(index));
    }
    return std::chrono::nanoseconds(0);
}

/// The highest bit selects the power of two, the kClassBits bits below it the class within it.
std::size_t Histogram::classOf(std::uint64_t nanoseconds)
{
    if (nanoseconds < kClasses)
        return nanoseconds;
    const auto power = static_cast<std::size_t>(std::bit_width(nanoseconds)) - 1 - kClassBits;
    if (power >= kPowers)
        return kClasses * (kPowers + 1) - 1;
    return kClasses * (power + 1) + ((nanoseconds >> power) - kClasses);
}

std::uint64_t Histogram::upperEndOf(std::size_t index)
{
    if (index < kClasses)
        return index;
    const std::size_t power = index / kClasses - 1;
    return ((kClasses + index % kClasses + 1) << power) - 1;
}

} // namespace quillbox::bench
