#include "platform/dnssd/engine/engine_pause.h"
#include "tests/platform/dnssd/engines/start_time.h"

#include <gtest/gtest.h>

namespace quillbox::dnssd {

namespace {

using namespace std::chrono_literals;

TEST(EnginePause, doublesUpToItsMaximum)
{
    EnginePause pause(100ms, 1s, 60s);
    EXPECT_EQ(pause.next(kStart), 100ms);
    EXPECT_EQ(pause.next(kStart), 200ms);
    EXPECT_EQ(pause.next(kStart), 400ms);
    EXPECT_EQ(pause.next(kStart), 800ms);
    EXPECT_EQ(pause.next(kStart), 1s);
    EXPECT_EQ(pause.next(kStart), 1s);
}

TEST(EnginePause, isShortAgainAfterALongLife)
{
    EnginePause pause(100ms, 1s, 60s);
    pause.next(kStart);
    pause.began(kStart);
    EXPECT_EQ(pause.next(kStart + 59s), 200ms);
    pause.began(kStart + 60s);
    EXPECT_EQ(pause.next(kStart + 120s), 100ms);
}

TEST(EnginePause, growsAgainWhenItDoesNotStartAfterALongLife)
{
    EnginePause pause(100ms, 1s, 60s);
    pause.began(kStart);
    EXPECT_EQ(pause.next(kStart + 60s), 100ms);
    EXPECT_EQ(pause.next(kStart + 61s), 200ms);
}

TEST(EnginePause, isShortAgainAfterNews)
{
    EnginePause pause(100ms, 1s, 60s);
    pause.next(kStart);
    pause.next(kStart);
    pause.shorten();
    EXPECT_EQ(pause.next(kStart), 100ms);
}

} // namespace

} // namespace quillbox::dnssd
