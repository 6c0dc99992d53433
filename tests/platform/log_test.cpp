#include "platform/log.h"
#include "platform/standard_error_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillbox {
namespace {

using namespace std::chrono_literals;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

TEST(Log, namesEachCategoryOnce)
{
    for (const LogCategory category : kLogCategories)
        EXPECT_EQ(logCategoryNamed(nameOf(category)), category) << nameOf(category);
    for (const char* name : {"", "Relay", "relay ", "all"})
        EXPECT_EQ(logCategoryNamed(name), std::nullopt) << name;
}

TEST(Log, tellsDurationsInTheUnitThatSuitsThem)
{
    EXPECT_EQ(durationText(0ms), "0 ms");
    EXPECT_EQ(durationText(999'999us), "999 ms");
    EXPECT_EQ(durationText(1s), "1.0 s");
    EXPECT_EQ(durationText(59'999ms), "59.9 s");
    EXPECT_EQ(durationText(60s), "1 min 0 s");
    EXPECT_EQ(durationText(59min + 59s), "59 min 59 s");
    EXPECT_EQ(durationText(1h), "1 h 0 min");
    EXPECT_EQ(durationText(25h + 7min), "25 h 7 min");
}

TEST(StandardErrorLog, stampsALineAndNamesItsCategory)
{
    CaptureStderr();
    makeStandardErrorLog({LogCategory::Relay})->tell(LogCategory::Relay, [] { return "starts"; });
    EXPECT_THAT(GetCapturedStderr(), testing::MatchesRegex("\\[    0\\.[0-9]+\\] relay: starts\n"));
}

TEST(StandardErrorLog, makesWhatStrangersChosePrintable)
{
    CaptureStderr();
    makeStandardErrorLog({LogCategory::Relay})->tell(LogCategory::Relay, [] {
        return std::string("Quillbox\x1b[2J\nstatus: ready");
    });
    EXPECT_THAT(GetCapturedStderr(), testing::HasSubstr("Quillbox\uFFFD[2J\uFFFDstatus: ready\n"));
}

TEST(StandardErrorLog, makesNoTextThatNobodyReads)
{
    CaptureStderr();
    int made = 0;
    const auto log = makeStandardErrorLog({LogCategory::Relay});
    for (const LogCategory category : kLogCategories)
        log->tell(category, [&] { return std::to_string(++made); });
    EXPECT_EQ(made, 1);
    EXPECT_THAT(GetCapturedStderr(), testing::HasSubstr("relay: 1\n"));
}

TEST(StandardErrorLog, numbersSessionsFromOne)
{
    const auto log = makeStandardErrorLog({});
    EXPECT_EQ(log->numberSession(), 1U);
    EXPECT_EQ(log->numberSession(), 2U);
}

} // namespace
} // namespace quillbox
