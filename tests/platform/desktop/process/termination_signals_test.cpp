#include "platform/desktop/process/termination_signals.h"
#include "tests/platform/desktop/qt_support.h"

#include <QCoreApplication>
#include <csignal>
#include <cstdlib>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

/// Raises a signal and exits with the number of handler calls. Runs in the child process of a death
/// test.
[[noreturn]] void takeOne(int signal)
{
    int requests = 0;
    const auto signals = makeTerminationSignals([&requests] { ++requests; });
    std::raise(signal);
    runUntil([&requests] { return requests > 0; });
    for (int turn = 0; turn < 10; ++turn)
        QCoreApplication::processEvents();
    std::_Exit(signals ? requests : -1);
}

/// Raises two signals and exits with 0 if the process survives both.
[[noreturn]] void takeTwo(int first, int second)
{
    const auto signals = makeTerminationSignals([] {});
    std::raise(first);
    std::raise(second);
    std::_Exit(signals ? EXIT_SUCCESS : EXIT_FAILURE);
}

TEST(TerminationSignals, theFirstOneIsACallOnTheLoop)
{
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        EXPECT_EXIT(takeOne(signal), ::testing::ExitedWithCode(1), "") << signal;
}

TEST(TerminationSignals, aSecondOneEndsTheProcessAtOnce)
{
    EXPECT_EXIT(takeTwo(SIGTERM, SIGTERM), ::testing::KilledBySignal(SIGTERM), "");
    EXPECT_EXIT(takeTwo(SIGINT, SIGINT), ::testing::KilledBySignal(SIGINT), "");
    EXPECT_EXIT(takeTwo(SIGHUP, SIGTERM), ::testing::KilledBySignal(SIGTERM), "");
}

TEST(TerminationSignals, aHangUpBehindATerminationEndsNothing)
{
    EXPECT_EXIT(takeTwo(SIGTERM, SIGHUP), ::testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST(TerminationSignals, oneThatIsIgnoredFromTheStartStaysSo)
{
    EXPECT_EXIT(
        {
            std::signal(SIGHUP, SIG_IGN);
            int requests = 0;
            const auto signals = makeTerminationSignals([&requests] { ++requests; });
            std::raise(SIGHUP);
            std::raise(SIGTERM);
            runUntil([&requests] { return requests > 0; });
            std::_Exit(signals ? requests : -1);
        },
        ::testing::ExitedWithCode(1), "");
}

TEST(TerminationSignals, interruptNoSystemCall)
{
    const auto signals = makeTerminationSignals([] {});
    struct sigaction action {};
    ASSERT_EQ(::sigaction(SIGTERM, nullptr, &action), 0);
    EXPECT_NE(action.sa_flags & SA_RESTART, 0);
}

TEST(TerminationSignals, haveTheirDefaultActionBackAfterwards)
{
    EXPECT_EXIT(
        {
            makeTerminationSignals([] {}).reset();
            std::raise(SIGTERM);
            std::_Exit(EXIT_SUCCESS);
        },
        ::testing::KilledBySignal(SIGTERM), "");
}

} // namespace

} // namespace quillbox
