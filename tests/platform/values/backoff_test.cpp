#include "platform/values/backoff.h"

#include <gtest/gtest.h>

namespace quillbox {

using namespace std::chrono_literals;

TEST(Backoff, doublesUpToItsMaximum)
{
    Backoff backoff(100ms, 1s);
    for (const auto expected : {100ms, 200ms, 400ms, 800ms, 1000ms, 1000ms})
        EXPECT_EQ(backoff.next(), expected);
    backoff.reset();
    EXPECT_EQ(backoff.next(), 100ms);
}

TEST(Backoff, mayBeginWithNoDelay)
{
    Backoff backoff(0ms, 500ms, 30s);
    for (const auto expected :
         {0ms, 500ms, 1000ms, 2000ms, 4000ms, 8000ms, 16000ms, 30000ms, 30000ms})
        EXPECT_EQ(backoff.next(), expected);
    backoff.reset();
    EXPECT_EQ(backoff.next(), 0ms);
}

} // namespace quillbox
