#include "platform/dnssd/engine/growing_pause.h"

#include <gtest/gtest.h>

namespace quillbox::dnssd {

using namespace std::chrono_literals;

TEST(GrowingPause, doublesUpToHalfAMinute)
{
    GrowingPause pause(GrowingPause::First::Nothing);
    for (const auto expected :
         {0ms, 500ms, 1000ms, 2000ms, 4000ms, 8000ms, 16000ms, 30000ms, 30000ms})
        EXPECT_EQ(pause.next(), expected);
    pause.reset();
    EXPECT_EQ(pause.next(), 0ms);
}

TEST(GrowingPause, mayBeginWithHalfASecond)
{
    GrowingPause pause(GrowingPause::First::Shortest);
    EXPECT_EQ(pause.next(), 500ms);
    EXPECT_EQ(pause.next(), 1000ms);
}

} // namespace quillbox::dnssd
