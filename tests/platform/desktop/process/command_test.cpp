#include "platform/desktop/process/command.h"
#include "tests/platform/desktop/event_wait.h"
#include "tests/platform/desktop/recorder.h"

#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

class CommandTest : public ::testing::Test {
protected:
    void start(const std::vector<std::string>& arguments,
               Command::Output output = Command::Output::Collected,
               std::chrono::milliseconds limit = 60s)
    {
        command = std::make_unique<Command>(arguments, output, limits, limit,
                                            [this](const Command::Result& answer) {
                                                EXPECT_FALSE(result) << "it ends once";
                                                result = answer;
                                            });
        EXPECT_FALSE(result) << "it is told from the event loop only";
    }

    Command::Result resultOf(const std::vector<std::string>& arguments)
    {
        start(arguments);
        EXPECT_TRUE(waitUntil([this] { return result.has_value(); }));
        return result.value_or(Command::Result());
    }

    Inheritance limits{.environment = environmentForPrograms()};
    std::unique_ptr<Command> command;
    std::optional<Command::Result> result;
};

TEST_F(CommandTest, tellsWhatAProgramPrints)
{
    const auto answer = resultOf({"printf", "%s", "a b"});
    EXPECT_TRUE(answer.isSuccess);
    EXPECT_EQ(answer.output, "a b");
}

TEST_F(CommandTest, handsArgumentsOverAsTheyAre)
{
    EXPECT_EQ(resultOf({"printf", "%s|", "$(id)", "a'b\"c", "", "--x", "Küche"}).output,
              "$(id)|a'b\"c||--x|Küche|");
}

TEST_F(CommandTest, isNoSuccessWhenTheProgramSaysSo)
{
    EXPECT_FALSE(resultOf({"false"}).isSuccess);
}

TEST_F(CommandTest, isNoSuccessWhenThereIsNoSuchProgram)
{
    EXPECT_FALSE(resultOf({"/nonexistent/program"}).isSuccess);
}

TEST_F(CommandTest, isNoSuccessWhenTheProgramIsKilled)
{
    EXPECT_FALSE(resultOf({"sh", "-c", "kill -9 $$"}).isSuccess);
}

TEST_F(CommandTest, givesUpWhenTheTimeIsOver)
{
    start({"sleep", "60"}, Command::Output::Discarded, 50ms);
    ASSERT_TRUE(waitUntil([this] { return result.has_value(); }));
    EXPECT_FALSE(result->isSuccess);
}

TEST_F(CommandTest, isNotHeldUpByWhatTheProgramStarted)
{
    // The background process keeps the write end of the pipe open; only the exit of the program
    // counts.
    start({"sh", "-c", "sleep 20 & echo $!"});
    ASSERT_TRUE(waitUntil([this] { return result.has_value(); }, 5000));
    EXPECT_TRUE(result->isSuccess);
    EXPECT_EQ(::kill(std::stoi(result->output), SIGKILL), 0);
}

TEST_F(CommandTest, readsNoMoreThanItMayKeep)
{
    const auto answer = resultOf({"head", "-c", "1000000", "/dev/zero"});
    EXPECT_EQ(answer.output.size(), 65536U);
}

TEST_F(CommandTest, givesTheProgramItsLimitsAndNothingToRead)
{
    limits.openFiles = rlimit{.rlim_cur = 123, .rlim_max = 456};
    EXPECT_EQ(resultOf({"sh", "-c", "ulimit -Sn; ulimit -Hn; cat"}).output, "123\n456\n");
}

TEST_F(CommandTest, discardsWhatTheProgramComplainsAbout)
{
    EXPECT_EQ(resultOf({"readlink", "/proc/self/fd/2"}).output, "/dev/null\n");
}

TEST_F(CommandTest, givesTheProgramTheInheritedEnvironmentOnly)
{
    qputenv("QUILLBOX_OWN", "own");
    limits.environment.emplace_back("QUILLBOX_INHERITED=inherited");
    EXPECT_EQ(resultOf({"sh", "-c", "echo ${QUILLBOX_OWN-none} $QUILLBOX_INHERITED"}).output,
              "none inherited\n");
    qunsetenv("QUILLBOX_OWN");
}

TEST_F(CommandTest, runsTheProgramInASessionOfItsOwn)
{
    EXPECT_EQ(resultOf({"sh", "-c", "test $(cut -d' ' -f6 /proc/$$/stat) = $$ && echo own"}).output,
              "own\n");
}

TEST_F(CommandTest, endsTheProgramWhenItIsDropped)
{
    Recorder recorder;
    recorder.addScript(QStringLiteral("late"), QStringLiteral("exec sleep 60"));
    start({(recorder.path() + QStringLiteral("/late")).toStdString()});
    recorder.calls(1);
    command.reset();
    EXPECT_FALSE(result);
}

TEST_F(CommandTest, mayBeDroppedByWhoeverHearsOfItsEnd)
{
    bool isTold = false;
    command =
        std::make_unique<Command>(std::vector<std::string>{"true"}, Command::Output::Discarded,
                                  limits, 10s, [this, &isTold](const Command::Result&) {
                                      command.reset();
                                      isTold = true;
                                  });
    EXPECT_TRUE(waitUntil([&isTold] { return isTold; }));
}

} // namespace

} // namespace quillbox
