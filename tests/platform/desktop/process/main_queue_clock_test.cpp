// This program defines clock_gettime() and gettimeofday() itself, replacing those of the C library,
// so that the test can set its wall clock.

#include "platform/desktop/process/main_queue.h"
#include "tests/platform/desktop/qt_support.h"

#include <atomic>
#include <chrono>
#include <ctime>
#include <memory>
#include <optional>

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

std::atomic<std::time_t> shift{0};

} // namespace

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): glibc uses reserved names
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    const long failure = ::syscall(SYS_clock_gettime, clock, time);
    if (failure == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE))
        time->tv_sec += shift;
    return static_cast<int>(failure);
}

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): glibc uses reserved names
extern "C" int gettimeofday(timeval* time, void* /*zone*/) noexcept
{
    timespec now{};
    const int failure = clock_gettime(CLOCK_REALTIME, &now);
    time->tv_sec = now.tv_sec;
    time->tv_usec = now.tv_nsec / 1000;
    return failure;
}

namespace quillbox {

namespace {

using namespace std::chrono_literals;

constexpr auto kLimit = 300ms;

class MainQueueClock : public ::testing::TestWithParam<std::chrono::hours> {
protected:
    ~MainQueueClock() override { shift = 0; }

    static void setClockOn(std::chrono::hours difference)
    {
        const auto before = std::chrono::system_clock::now();
        shift = std::chrono::seconds(difference).count();
        const auto moved = std::chrono::system_clock::now() - before;
        ASSERT_EQ(std::chrono::round<std::chrono::hours>(moved), difference)
            << "the clock of the day does not obey";
    }

    const std::unique_ptr<MainQueue> mainQueue = makeMainQueue();
};

TEST_P(MainQueueClock, keepsADelayWhenTheClockIsSet)
{
    using Clock = std::chrono::steady_clock;
    std::optional<Clock::duration> taken;
    Clock::time_point start;
    mainQueue->queue()->async([&] {
        start = Clock::now();
        mainQueue->queue()->asyncAfter(kLimit, [&] { taken = Clock::now() - start; });
    });
    mainQueue->queue()->asyncAfter(kLimit / 3, [] { setClockOn(GetParam()); });
    ASSERT_TRUE(runUntil([&] { return taken.has_value(); }));
    EXPECT_GE(*taken, kLimit);
    EXPECT_LT(*taken, kLimit + 2s);
}

INSTANTIATE_TEST_SUITE_P(OnAndBack, MainQueueClock, ::testing::Values(24h, -24h));

} // namespace

} // namespace quillbox
