#include "platform/desktop/process.h"
#include "tests/platform/desktop/qt_support.h"

#include <QTemporaryDir>
#include <array>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillbox {

namespace {

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
            std::_Exit(verdict(raised.rlim_cur == limit.rlim_max
                               && inherited.openFiles.rlim_cur == limit.rlim_cur));
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
    const std::vector<std::string> other{"A=b"};
    EXPECT_THAT(withActivationToken(other, "token"),
                ElementsAre("A=b", "XDG_ACTIVATION_TOKEN=token", "DESKTOP_STARTUP_ID=token"));
    EXPECT_EQ(withActivationToken(other, ""), other);
}

TEST_F(Process, givesProgramsThatItStartsTheirLimitsAndSignalsBack)
{
    Inheritance limits;
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limits.openFiles), 0);
    limits.openFiles.rlim_cur = 77;
    limits.isOpenFilesKnown = true;

    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
    std::signal(SIGPIPE, SIG_IGN);
    const std::string status = procFile("status", limits);
    const std::string openFiles = procFile("limits", limits);
    std::signal(SIGPIPE, SIG_DFL);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);

    EXPECT_THAT(openFiles, ContainsRegex("Max open files +77 "));
    EXPECT_THAT(status, HasSubstr("SigBlk:\t0000000000000000\n"));
    EXPECT_THAT(status, HasSubstr("SigIgn:\t0000000000000000\n"));
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
    EXPECT_FALSE(startDetached({"no-such-program-anywhere"}, {}));
    EXPECT_FALSE(startDetached({folder.path().toStdString()}, {}));
}

TEST_F(Process, endsInTimeWhateverItsThreadsDo)
{
    EXPECT_EXIT(
        {
            endProcessWithin(std::chrono::milliseconds(50));
            for (;;)
                ::pause();
        },
        ::testing::ExitedWithCode(EXIT_SUCCESS), "");
}

} // namespace

} // namespace quillbox
