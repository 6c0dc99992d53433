#include "platform/desktop/process/process.h"
#include "tests/platform/desktop/qt_support.h"

#include <QTemporaryDir>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

/// The exit status of a death test's child process for the result of its check.
int verdict(bool isGood)
{
    return isGood ? EXIT_SUCCESS : EXIT_FAILURE;
}

ssize_t writeToNobody()
{
    std::array<int, 2> ends{};
    [[maybe_unused]] const int made = ::pipe(ends.data());
    ::close(ends[0]);
    return ::write(ends[1], "x", 1);
}

class Process : public ::testing::Test {
protected:
    QTemporaryDir folder;
    NamedPipe pipe{folder.filePath(QStringLiteral("pipe")).toStdString()};

    /// What the program writes to `pipe`.
    std::string outputOf(const std::vector<std::string>& command, const Inheritance& limits)
    {
        EXPECT_TRUE(startDetached(command, limits));
        return pipe.readAll();
    }

    /// A file of /proc/self as a started program sees it. Not read by a shell, which changes signal
    /// handling.
    std::string procFile(const std::string& name, const Inheritance& limits)
    {
        return outputOf({"dd", "status=none", "if=/proc/self/" + name, "of=" + pipe.path()},
                        limits);
    }
};

TEST_F(Process, takesAllTheDescriptorsThatItMayHave)
{
    EXPECT_EXIT(
        {
            rlimit limit{};
            ::getrlimit(RLIMIT_NOFILE, &limit);
            limit.rlim_cur = limit.rlim_max / 2;
            ::setrlimit(RLIMIT_NOFILE, &limit);
            const Inheritance inherited = prepareProcess();
            rlimit raised{};
            ::getrlimit(RLIMIT_NOFILE, &raised);
            std::_Exit(
                verdict(raised.rlim_cur == limit.rlim_max
                        && inherited.openFiles.value_or(rlimit{}).rlim_cur == limit.rlim_cur));
        },
        ::testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST_F(Process, survivesWritingToAClosedConnection)
{
    EXPECT_EXIT(
        {
            prepareProcess();
            std::_Exit(verdict(writeToNobody() < 0));
        },
        ::testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST_F(Process, hasStandardDescriptorsEvenWhenItWasStartedWithoutThem)
{
    EXPECT_EXIT(
        {
            ::close(STDIN_FILENO);
            ::close(STDERR_FILENO);
            prepareProcess();
            const int next = ::open("/dev/null", O_RDONLY);
            std::_Exit(verdict(next > STDERR_FILENO && ::fcntl(STDERR_FILENO, F_GETFD) >= 0));
        },
        ::testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST_F(Process, givesProgramsTheEnvironmentThatItInherited)
{
    EXPECT_EXIT(
        {
            ::setenv("QUILLBOX_INHERITED", "before", 1);
            ::unsetenv("QT_QPA_PLATFORM");
            const Inheritance inherited = prepareProcess();
            ::setenv("QUILLBOX_INHERITED", "after", 1);
            ::setenv("QT_QPA_PLATFORM", "wayland", 1);
            const std::string text = procFile("environ", inherited);
            std::_Exit(verdict(text.find("QUILLBOX_INHERITED=before") != std::string::npos
                               && text.find("QT_QPA_PLATFORM") == std::string::npos));
        },
        ::testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST_F(Process, givesProgramsNothingThatIsValidForThisProcessOnly)
{
    Environment environment;
    for (const char* name : {"XDG_ACTIVATION_TOKEN", "DESKTOP_STARTUP_ID", "WAYLAND_SOCKET"})
        environment.set(name, "own");
    environment.set("WAYLAND_DISPLAY", "wayland-7");
    const auto variables = environmentForPrograms();
    EXPECT_THAT(variables, Not(Contains(HasSubstr("=own"))));
    EXPECT_THAT(variables, Contains("WAYLAND_DISPLAY=wayland-7"));
}

TEST_F(Process, givesAProgramItsOwnActivationToken)
{
    const Inheritance other{.environment = {"A=b"}};
    EXPECT_THAT(withActivationToken(other, "token").environment,
                ElementsAre("A=b", "XDG_ACTIVATION_TOKEN=token", "DESKTOP_STARTUP_ID=token"));
    EXPECT_THAT(withActivationToken(other, "").environment, ElementsAre("A=b"));
}

TEST_F(Process, givesProgramsThatItStartsTheirLimitsAndSignalsBack)
{
    rlimit files{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &files), 0);
    files.rlim_cur = 77;
    const Inheritance limits{.openFiles = files};

    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
    std::signal(SIGPIPE, SIG_IGN);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM, SIGALRM})
        std::signal(signal, SIG_IGN);
    const std::string status = procFile("status", limits);
    const std::string openFiles = procFile("limits", limits);
    for (const int signal : {SIGPIPE, SIGHUP, SIGINT, SIGTERM, SIGALRM})
        std::signal(signal, SIG_DFL);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);

    EXPECT_THAT(openFiles, ContainsRegex("Max open files +77 "));
    EXPECT_THAT(status, HasSubstr("SigBlk:\t0000000000000000\n"));
    EXPECT_THAT(status, HasSubstr("SigIgn:\t0000000000000000\n"));
}

TEST_F(Process, leavesSigpipeIgnoredForProgramsWhereItWasInheritedSo)
{
    std::signal(SIGPIPE, SIG_IGN);
    const std::string status = procFile("status", {.wasPipeSignalIgnored = true});
    std::signal(SIGPIPE, SIG_DFL);
    EXPECT_THAT(status, HasSubstr("SigIgn:\t0000000000001000\n"));
}

TEST_F(Process, startsProgramsThatAreNobodysChildAndReadNothing)
{
    const std::string output =
        outputOf({"sh", "-c", R"({ read -r line; echo "read $?"; ps -o sid= -p $$; } > "$1")", "sh",
                  pipe.path()},
                 {});
    std::istringstream lines(output);
    std::string read;
    std::getline(lines, read);
    EXPECT_EQ(read, "read 1");
    // getsid() is 0 for a session that began outside of the PID namespace.
    pid_t session = 0;
    EXPECT_TRUE(lines >> session) << output;
    EXPECT_GT(session, 0);
    EXPECT_NE(session, ::getsid(0));
    EXPECT_LT(::waitpid(-1, nullptr, WNOHANG), 0) << "a child is left";
}

TEST_F(Process, tellsWhenAProgramCannotBeStarted)
{
    EXPECT_FALSE(hasStayed(-1));
    EXPECT_FALSE(startDetached({"no-such-program-anywhere"}, {}));
    EXPECT_FALSE(startDetached({folder.path().toStdString()}, {}));
}

TEST_F(Process, tellsWhenAProgramFailsWithinAMoment)
{
    const auto hasProgramStayed = [](const std::vector<std::string>& command) {
        const FileDescriptor result = startWatched(command, {}, 20s);
        return hasStayed(result.get());
    };
    EXPECT_TRUE(hasProgramStayed({"true"}));
    EXPECT_FALSE(hasProgramStayed({"false"}));
    EXPECT_FALSE(hasProgramStayed({"sh", "-c", "kill -KILL $$"}));
    EXPECT_FALSE(hasProgramStayed({"no-such-program-anywhere"}));
    EXPECT_LT(::waitpid(-1, nullptr, WNOHANG), 0) << "a child is left";
}

TEST_F(Process, hearsNoComplaintsOfAProgramThatItWatches)
{
    const std::vector<std::string> command{"sh", "-c", R"(readlink /proc/$$/fd/2 > "$1")", "sh",
                                           pipe.path()};
    const FileDescriptor result = startWatched(command, {}, 20s);
    EXPECT_EQ(pipe.readAll(), "/dev/null\n");
    EXPECT_TRUE(hasStayed(result.get()));
}

TEST_F(Process, leavesAProgramThatRunsLongerThanAMomentAlone)
{
    const std::string wait = folder.filePath(QStringLiteral("wait")).toStdString();
    ASSERT_EQ(::mkfifo(wait.c_str(), 0600), 0);
    const FileDescriptor result = startWatched(
        {"sh", "-c", R"(cat "$1"; echo done > "$2"; exit 1)", "sh", wait, pipe.path()}, {}, 100ms);
    EXPECT_TRUE(hasStayed(result.get()));
    FileDescriptor(::open(wait.c_str(), O_WRONLY | O_CLOEXEC)).reset();
    EXPECT_EQ(pipe.readAll(), "done\n");
}

TEST_F(Process, keepsNoConnectionOpenWhileAProgramIsWatched)
{
    const std::string wait = folder.filePath(QStringLiteral("wait")).toStdString();
    ASSERT_EQ(::mkfifo(wait.c_str(), 0600), 0);
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    FileDescriptor high(::fcntl(writing.get(), F_DUPFD_CLOEXEC, 500));
    const FileDescriptor result = startWatched({"cat", wait}, {}, 20s);
    FileDescriptor go(::open(wait.c_str(), O_WRONLY | O_CLOEXEC)); // once the program runs
    writing.reset();
    high.reset();
    pollfd end{reading.get(), POLLIN, 0};
    EXPECT_EQ(::poll(&end, 1, 10'000), 1) << "the end of the pipe is still open somewhere";
    pollfd known{result.get(), POLLIN, 0};
    EXPECT_EQ(::poll(&known, 1, 0), 0);
    go.reset();
    EXPECT_TRUE(hasStayed(result.get()));
}

TEST_F(Process, endsInTimeWhateverItsThreadsDo)
{
    EXPECT_EXIT(
        {
            sigset_t all;
            sigfillset(&all);
            ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
            endProcessWithin(std::chrono::milliseconds(50));
            for (;;)
                ::pause();
        },
        ::testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST(ActivationToken, isTakenFromTheEnvironmentIfItIsOne)
{
    Environment environment;
    environment.set("XDG_ACTIVATION_TOKEN", {});
    environment.set("DESKTOP_STARTUP_ID", {});
    EXPECT_EQ(activationTokenOfEnvironment(), "");
    environment.set("DESKTOP_STARTUP_ID", "startup_TIME1");
    EXPECT_EQ(activationTokenOfEnvironment(), "startup_TIME1");
    environment.set("XDG_ACTIVATION_TOKEN", "token");
    EXPECT_EQ(activationTokenOfEnvironment(), "token");
    for (const QByteArray& unfit : {QByteArray("two words"), QByteArray("line\nbreak"),
                                    QByteArray("\xc3\xa9"), QByteArray(500, 't')}) {
        environment.set("XDG_ACTIVATION_TOKEN", unfit);
        EXPECT_EQ(activationTokenOfEnvironment(), "startup_TIME1");
    }
}

} // namespace

} // namespace quillbox
