#include "platform/diagnosis/timely.h"

#include <chrono>
#include <future>
#include <memory>
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
    const auto gate = std::make_shared<std::promise<void>>();
    const auto passed = std::make_shared<std::promise<void>>();
    Timely<int> work([gate, passed] {
        gate->get_future().wait();
        passed->set_value();
        return 7;
    });
    EXPECT_EQ(work.take(Clock::now(), 1), 1);
    EXPECT_TRUE(work.isLate());
    gate->set_value();
    passed->get_future().wait();
}

TEST(Timely, whatFailsIsNoResult)
{
    Timely<int> work([]() -> int { throw std::runtime_error("no"); });
    EXPECT_EQ(work.take(farAway(), 3), 3);
    EXPECT_FALSE(work.isLate());
}

} // namespace

} // namespace quillbox::diagnosis
