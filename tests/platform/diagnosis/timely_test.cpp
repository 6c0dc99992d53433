#include "platform/diagnosis/timely.h"

#include <chrono>
#include <semaphore>
#include <stdexcept>

#include <gtest/gtest.h>

namespace quillbox::diagnosis {

namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point farAway()
{
    return Clock::now() + std::chrono::minutes(1);
}

TEST(Timely, whatComesInTimeIsTaken)
{
    Timely<int> work([] { return 7; });
    EXPECT_EQ(work.take(farAway(), 0), 7);
    EXPECT_FALSE(work.isLate());
}

TEST(Timely, whatIsLateIsLeftAlone)
{
    // Not on the stack, because nothing tells when the thread has ended.
    static std::binary_semaphore gate{0};
    static std::binary_semaphore passed{0};
    Timely<int> work([] {
        gate.acquire();
        passed.release();
        return 7;
    });
    EXPECT_EQ(work.take(Clock::now(), 1), 1);
    EXPECT_TRUE(work.isLate());
    gate.release();
    passed.acquire();
}

TEST(Timely, whatFailsIsNoResult)
{
    Timely<int> work([]() -> int { throw std::runtime_error("no"); });
    EXPECT_EQ(work.take(farAway(), 3), 3);
    EXPECT_FALSE(work.isLate());
}

} // namespace

} // namespace quillbox::diagnosis
