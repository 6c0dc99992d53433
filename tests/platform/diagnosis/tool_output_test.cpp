#include "platform/diagnosis/tool_output.h"

#include <chrono>
#include <string>

#include <gtest/gtest.h>

namespace quillbox::diagnosis {

namespace {

using End = ToolOutput::End;
using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(ToolOutput, bothStreamsAreRead)
{
    const auto said = runTool({"/bin/sh", "-c", "echo out; echo err >&2"}, seconds(60));
    EXPECT_EQ(said.end, End::Done);
    EXPECT_EQ(said.output, "out\n");
    EXPECT_EQ(said.complaints, "err\n");
}

TEST(ToolOutput, muchOutputIsReadToItsEnd)
{
    const auto said = runTool({"/bin/sh", "-c", "head -c 1000000 /dev/zero"}, seconds(60));
    EXPECT_EQ(said.end, End::Done);
    EXPECT_EQ(said.output.size(), 1'000'000U);
}

TEST(ToolOutput, outputWithoutEndIsCutOff)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(runTool({"/bin/cat", "/dev/zero"}, seconds(300)).end, End::Late);
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(300));
}

TEST(ToolOutput, failureIsKnown)
{
    EXPECT_EQ(runTool({"/bin/sh", "-c", "exit 3"}, seconds(60)).end, End::Failed);
    EXPECT_EQ(runTool({"/bin/sh", "-c", "kill -9 $$"}, seconds(60)).end, End::Failed);
    EXPECT_EQ(runTool({"/nonexistent/tool"}, seconds(60)).end, End::Missing);
}

TEST(ToolOutput, whatIsStuckIsEnded)
{
    EXPECT_EQ(runTool({"/bin/sh", "-c", "exec sleep 600"}, milliseconds(50)).end, End::Late);
}

TEST(ToolOutput, aToolIsFoundWhereverItIs)
{
    EXPECT_TRUE(findTool("sh").ends_with("/sh"));
    EXPECT_EQ(findTool("no-such-tool-anywhere"), "");
}

} // namespace

} // namespace quillbox::diagnosis
