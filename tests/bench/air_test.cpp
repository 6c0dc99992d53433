#include "bench/air.h"

#include <algorithm>
#include <set>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox::bench {
namespace {

using std::chrono::duration;
using std::chrono::microseconds;
using std::chrono::nanoseconds;

constexpr std::uint64_t kMegabit = 125'000;
constexpr auto kPaces = {100 * kMegabit, 400 * kMegabit, 800 * kMegabit, 2500 * kMegabit};

duration<double> airTime(std::uint64_t pace)
{
    return duration<double>(static_cast<double>(aggregate(pace, 0).size)
                            / static_cast<double>(pace));
}

TEST(Air, carries_in_each_aggregate_what_the_pace_carries_in_its_time)
{
    EXPECT_EQ(aggregate(400 * kMegabit, 0).size, 75'000U);
    EXPECT_EQ(aggregate(400 * kMegabit, 17).size, 75'000U);
    EXPECT_EQ(aggregate(480 * kMegabit, 0).size, 90'000U);
}

TEST(Air, bounds_the_size_of_an_aggregate)
{
    EXPECT_EQ(aggregate(100 * kMegabit, 0).size, kSmallestAggregate);
    EXPECT_EQ(aggregate(2500 * kMegabit, 0).size, kLargestAggregate);
}

TEST(Air, sends_each_aggregate_within_its_own_time)
{
    for (const auto pace : kPaces) {
        for (std::uint64_t number = 0; number < 10'000; ++number) {
            const auto begin = airTime(pace) * static_cast<double>(number);
            EXPECT_GE(aggregate(pace, number).due, begin - nanoseconds(1));
            EXPECT_LE(aggregate(pace, number).due, begin + airTime(pace) + nanoseconds(1));
        }
    }
}

TEST(Air, keeps_the_pace_over_any_time)
{
    for (const auto pace : kPaces) {
        double bytes = 0;
        std::uint64_t number = 0;
        for (; aggregate(pace, number).due < std::chrono::seconds(1); ++number)
            bytes += static_cast<double>(aggregate(pace, number).size);
        const auto size = static_cast<double>(aggregate(pace, 0).size);
        EXPECT_NEAR(bytes, static_cast<double>(pace), 2 * size);
    }
}

TEST(Air, spreads_the_moments_evenly_over_the_time_of_an_aggregate)
{
    const auto pace = 400 * kMegabit;
    std::vector<int> counts(10);
    for (std::uint64_t number = 0; number < 10'000; ++number) {
        const duration<double> due = aggregate(pace, number).due;
        const double share = due / airTime(pace) - static_cast<double>(number);
        ++counts.at(std::clamp(static_cast<std::size_t>(share * 10), 0UL, 9UL));
    }
    EXPECT_GT(std::ranges::min(counts), 900);
    EXPECT_LT(std::ranges::max(counts), 1100);
}

TEST(Air, is_the_same_for_everyone)
{
    std::set<nanoseconds> found;
    for (int count = 0; count < 3; ++count)
        found.insert(aggregate(400 * kMegabit, 5).due);
    EXPECT_EQ(found.size(), 1U);
    EXPECT_GT(*found.begin(), microseconds(5 * 1500 - 1));
}

} // namespace
} // namespace quillbox::bench
