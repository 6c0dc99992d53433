#include "bench/histogram.h"
#include "bench/report.h"

#include <chrono>

#include <gtest/gtest.h>

namespace quillbox::bench {
namespace {

using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::nanoseconds;

TEST(Histogram, is_zero_without_durations)
{
    const Histogram times;
    EXPECT_EQ(times.count(), 0U);
    EXPECT_EQ(times.percentile(0.5), nanoseconds(0));
}

TEST(Histogram, gives_each_percentile_within_one_per_cent)
{
    Histogram times;
    for (int duration = 1; duration <= 10'000; ++duration)
        times.add(microseconds(duration));
    for (const double share : {0.001, 0.5, 0.99, 0.999, 1.0}) {
        const double wanted = share * 10'000 * 1000;
        const auto found = static_cast<double>(times.percentile(share).count());
        EXPECT_GE(found, wanted);
        EXPECT_LE(found, wanted * 1.01);
    }
}

TEST(Histogram, keeps_small_durations_to_the_nanosecond)
{
    Histogram times;
    times.add(nanoseconds(3));
    times.add(nanoseconds(127));
    EXPECT_EQ(times.percentile(0.5), nanoseconds(3));
    EXPECT_EQ(times.percentile(1), nanoseconds(127));
}

TEST(Histogram, tells_one_late_answer_of_a_thousand_by_the_last_percentile_alone)
{
    Histogram times;
    for (int count = 0; count < 999; ++count)
        times.add(microseconds(50));
    times.add(microseconds(40'000));
    EXPECT_LT(times.percentile(0.999), microseconds(51));
    EXPECT_GE(times.percentile(1), microseconds(40'000));
}

TEST(Histogram, counts_what_is_longer_than_it_holds_as_the_longest)
{
    Histogram times;
    times.add(hours(10));
    times.add(nanoseconds(-5));
    EXPECT_EQ(times.count(), 2U);
    EXPECT_EQ(times.percentile(0.5), nanoseconds(0));
    EXPECT_GT(times.percentile(1), std::chrono::minutes(2));
}

TEST(Histogram, adds_the_durations_of_another_one)
{
    Histogram all;
    Histogram other;
    all.add(nanoseconds(10));
    other.add(nanoseconds(20));
    other.add(nanoseconds(30));
    all.add(other);
    EXPECT_EQ(all.count(), 3U);
    EXPECT_EQ(all.percentile(0.3), nanoseconds(10));
    EXPECT_EQ(all.percentile(0.6), nanoseconds(20));
    EXPECT_EQ(all.percentile(1), nanoseconds(30));
}

TEST(Report, tells_percentiles_in_microseconds)
{
    Histogram times;
    times.add(nanoseconds(100));
    EXPECT_EQ(told(times), "\"count\": 1, \"p50\": 0.1, \"p99\": 0.1, \"p999\": 0.1");
}

} // namespace
} // namespace quillbox::bench
