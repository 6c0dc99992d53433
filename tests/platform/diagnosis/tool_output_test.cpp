#include "platform/diagnosis/tool_output.h"
#include "tests/platform/desktop/qt_support.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

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
    const auto said = runTool({"/bin/cat", "/dev/zero"}, seconds(300));
    EXPECT_EQ(said.end, End::Late);
    EXPECT_LT(said.output.size(), std::size_t{17} << 20U);
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

TEST(ToolOutput, aToolReadsNothingOfTheInputOfThisProgram)
{
    std::array<int, 2> input{-1, -1};
    ASSERT_EQ(::pipe(input.data()), 0);
    ASSERT_EQ(::write(input[1], "typed\n", 6), 6);
    ::close(input[1]);
    const int before = ::dup(STDIN_FILENO);
    ::dup2(input[0], STDIN_FILENO);
    EXPECT_EQ(runTool({"/bin/cat"}, seconds(60)).output, "");
    ::dup2(before, STDIN_FILENO);
    ::close(before);
    ::close(input[0]);
}

TEST(ToolOutput, aToolIsAnExecutableFileInAnAbsoluteFolder)
{
    namespace fs = std::filesystem;
    std::string pattern = fs::temp_directory_path() / "quillbox-XXXXXX";
    const fs::path folder = ::mkdtemp(pattern.data());
    const fs::path tool = folder / "test-tool";
    std::ofstream(tool) << "#!/bin/sh\n";
    Environment environment;
    environment.set("PATH", folder.c_str());
    EXPECT_EQ(findTool("test-tool"), "") << "it is not executable";
    fs::permissions(tool, fs::perms::owner_all);
    EXPECT_EQ(findTool("test-tool"), tool);
    const fs::path before = fs::current_path();
    fs::current_path(folder);
    environment.set("PATH", ".");
    EXPECT_EQ(findTool("test-tool"), "");
    fs::current_path(before);
    fs::remove_all(folder);
}

TEST(ToolOutput, aToolIsFoundWhereverItIs)
{
    EXPECT_TRUE(findTool("sh").ends_with("/sh"));
    EXPECT_EQ(findTool("no-such-tool-anywhere"), "");
}

} // namespace

} // namespace quillbox::diagnosis
