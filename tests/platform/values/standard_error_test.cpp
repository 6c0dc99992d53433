#include "platform/values/standard_error.h"

#include <gtest/gtest.h>

namespace quillbox {

namespace {

TEST(StandardError, leavesOrdinaryTextAsItIs)
{
    EXPECT_EQ(printable("Quillbox Caf\u00e9 \U0001F4F1 %n & <b>"),
              "Quillbox Caf\u00e9 \U0001F4F1 %n & <b>");
    EXPECT_EQ(printable(""), "");
}

TEST(StandardError, replacesWhatATerminalWouldActUpon)
{
    EXPECT_EQ(printable("a\x1b[2J\r\n\t\x7f\u0085\u009b"),
              "a\uFFFD[2J\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(printable(std::string_view("a\0b", 3)), "a\uFFFDb");
}

TEST(StandardError, replacesWhatWouldBreakOrTurnALine)
{
    EXPECT_EQ(printable("\u2028\u2029\u202a\u202e\u2066\u2069"),
              "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD");
}

TEST(StandardError, replacesEachByteThatIsNotUtf8)
{
    EXPECT_EQ(printable("a\xff\xc3"), "a\uFFFD\uFFFD");
    EXPECT_EQ(printable("\xed\xa0\x80"), "\uFFFD\uFFFD\uFFFD"); // a lone surrogate
}

TEST(StandardError, printsOneLine)
{
    ::testing::internal::CaptureStderr();
    printToStandardError("one\ntwo");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "one\uFFFDtwo\n");
}

} // namespace

} // namespace quillbox
