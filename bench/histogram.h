#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace quillbox::bench {

/// A histogram of durations, with classes narrower than one per cent of their value. A value type;
/// adding a duration takes constant time and does not allocate.
class Histogram {
public:
    void add(std::chrono::nanoseconds duration);
    /// Adds all durations of another histogram.
    void add(const Histogram& other);

    std::uint64_t count() const { return count_; }

    /// The duration that `share` (0 to 1) of all durations do not exceed; zero if there are none.
    std::chrono::nanoseconds percentile(double share) const;

private:
    /// Each power of two is divided into kClasses classes; below kClasses ns, each nanosecond is
    /// one class.
    static constexpr std::size_t kClassBits = 7;
    static constexpr std::size_t kClasses = std::size_t(1) << kClassBits;
    /// Up to 2^37 ns, more than two minutes; longer durations count in the last class.
    static constexpr std::size_t kPowers = 30;

    static std::size_t classOf(std::uint64_t nanoseconds);
    static std::uint64_t upperEndOf(std::size_t index);

    std::array<std::uint64_t, kClasses*(kPowers + 1)> counts_{};
    std::uint64_t count_ = 0;
};

} // namespace quillbox::bench
