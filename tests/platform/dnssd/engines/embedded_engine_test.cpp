#include "platform/dnssd/engine/engine_process.h"
#include "tests/platform/dnssd/engines/engine_network_test.h"
#include "tests/platform/dnssd/engines/engine_processes.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

namespace quillbox::dnssd {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class EmbeddedEngine : public EngineNetworkTest {
protected:
    void SetUp() override
    {
        EngineNetworkTest::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        engine->start([this, record = events.handler()](const Event& event) {
            record(event);
            if (std::holds_alternative<EngineUp>(event) && isReregistering)
                engine->send(registration(1, "Quillbox", "quillbox-1.local"));
        });
        ASSERT_TRUE(events.waitFor<EngineUp>());
    }
    void TearDown() override { engine->stop(); }

    std::atomic<bool> isReregistering = true; ///< read on the engine's thread
    EventRecorder events;
    std::unique_ptr<EngineOnPool> engine = makeEmbeddedEngine();
};

TEST_F(EmbeddedEngine, advertisesAgainWithinThreeSecondsOfACrash)
{
    ASSERT_TRUE(events.waitForEvent(Registered{1}));
    const auto child = engineProcessOf(::getpid());
    ASSERT_TRUE(child);
    events.clear();
    const auto since = Clock::now();
    ::kill(*child, SIGABRT);
    EXPECT_TRUE(events.waitFor<EngineDown>(1s));
    EXPECT_TRUE(events.waitForEvent(Registered{1}));
    EXPECT_LE(Clock::now() - since, 3s);

    const auto next = engineProcessOf(::getpid());
    ASSERT_TRUE(next);
    EXPECT_NE(*next, *child);
    EXPECT_FALSE(std::filesystem::exists("/proc/" + std::to_string(*child))) << "a zombie";
}

TEST_F(EmbeddedEngine, waitsLongerAfterEachCrash)
{
    std::vector<Clock::duration> pauses;
    for (int round = 0; round < 4; ++round) {
        ASSERT_TRUE(events.waitFor<EngineUp>());
        const auto child = engineProcessOf(::getpid());
        ASSERT_TRUE(child);
        events.clear();
        ::kill(*child, SIGKILL);
        ASSERT_TRUE(events.waitFor<EngineDown>());
        const auto since = Clock::now();
        ASSERT_TRUE(events.waitFor<EngineUp>());
        pauses.push_back(Clock::now() - since);
    }
    EXPECT_GE(pauses[0], 50ms);
    EXPECT_GE(pauses[3], 400ms);
}

TEST_F(EmbeddedEngine, leavesNoProcessBehind)
{
    ASSERT_TRUE(engineProcessOf(::getpid()));
    const auto before = childrenOf(::getpid()).size();
    engine->stop();
    EXPECT_FALSE(engineProcessOf(::getpid()));
    EXPECT_EQ(childrenOf(::getpid()).size(), before - 1);
}

TEST_F(EmbeddedEngine, runsItsProcessWithoutWhatItDoesNotNeed)
{
    const auto child = engineProcessOf(::getpid());
    ASSERT_TRUE(child);
    EXPECT_EQ(statusLine(*child, "NoNewPrivs"), "NoNewPrivs:\t1");

    // The engine process ignores signals from the terminal; its parent handles them.
    ::kill(*child, SIGINT);
    ::kill(*child, SIGHUP);
    EXPECT_FALSE(waitForEnd(*child, 300ms));
}

TEST_F(EmbeddedEngine, replacesAProcessThatReadsNothing)
{
    const auto child = engineProcessOf(::getpid());
    ASSERT_TRUE(child);
    ::kill(*child, SIGSTOP);
    events.clear();
    for (RequestId id = 2; id < 10'000; ++id)
        engine->send(StopRequest{id});
    EXPECT_TRUE(events.waitFor<EngineDown>(2s)) << "long before it counts as silent";
    EXPECT_TRUE(events.waitFor<EngineUp>());
    EXPECT_FALSE(std::filesystem::exists("/proc/" + std::to_string(*child)));
}

TEST_F(EmbeddedEngine, leavesNoOpenFileToItsProcess)
{
    const auto child = engineProcessOf(::getpid());
    ASSERT_TRUE(child);
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(*child) + "/fd")) {
        const std::string file = std::filesystem::read_symlink(entry.path());
        EXPECT_FALSE(file.starts_with('/') && !file.starts_with("/dev/")
                     && entry.path().filename() != "2")
            << entry.path() << " is " << file;
    }
}

TEST_F(EmbeddedEngine, leavesItsProcessTimeForGoodbyesWhenTheThreadsOfTheProgramHaveEnded)
{
    TestZeroconf browser(*network, {"watch", "_smb._tcp"});
    ASSERT_TRUE(browser.waitForLine("watching"));
    ASSERT_TRUE(browser.waitForLine("found Quillbox._smb._tcp.local."));
    const auto child = engineProcessOf(::getpid());
    ASSERT_TRUE(child);

    engine->shutDownPool();
    EXPECT_FALSE(waitForEnd(*child, 500ms)) << "it got a signal that gives it a second";
    const auto since = Clock::now();
    engine->stop();
    EXPECT_LE(Clock::now() - since, 400ms);
    EXPECT_TRUE(browser.waitForLine("lost Quillbox._smb._tcp.local.", 3s));
}

TEST_F(EmbeddedEngine, endsAProcessThatHangsWhenTheThreadsOfTheProgramHaveEnded)
{
    const auto child = engineProcessOf(::getpid());
    ASSERT_TRUE(child);
    engine->shutDownPool();
    EXPECT_TRUE(waitForEnd(*child, 3s)) << "nobody has asked it to end";
}

TEST_F(EmbeddedEngine, comesBackAtOnceAfterALifeThatWasNotShort)
{
    isReregistering = false;
    std::vector<Clock::duration> pauses;
    for (int round = 0; round < 6; ++round) {
        const auto child = engineProcessOf(::getpid());
        ASSERT_TRUE(child);
        EXPECT_FALSE(events.waitFor<EngineDown>(1s));
        events.clear();
        const auto since = Clock::now();
        ::kill(*child, SIGKILL);
        ASSERT_TRUE(events.waitFor<EngineUp>());
        pauses.push_back(Clock::now() - since);
        events.clear();
    }
    // Pauses that double would be 50, 100, 200, 400, 800 and 1600 ms. Each includes the start of a
    // process, which may take long on a busy computer.
    EXPECT_LT(std::min(pauses[4], pauses[5]) - std::min(pauses[0], pauses[1]), 600ms);
}

TEST_F(EmbeddedEngine, endsAHangingProcessWhenItStops)
{
    const auto child = engineProcessOf(::getpid());
    ASSERT_TRUE(child);
    ::kill(*child, SIGSTOP);
    engine->stop();
    EXPECT_TRUE(waitForEnd(*child, 5s));
}

TEST_F(EmbeddedEngine, takesItsAdvertisementAlongWhenTheProgramIsKilled)
{
    TestZeroconf browser(*network, {"watch", "_smb._tcp"});
    ASSERT_TRUE(browser.waitForLine("watching"));
    TestPeer program(TestPeer::Where::Here, *network, "Killed", "killed.local");
    ASSERT_TRUE(program.isReady());
    ASSERT_TRUE(browser.waitForLine("found Killed._smb._tcp.local."));
    const auto child = engineProcessOf(program.id());
    ASSERT_TRUE(child);

    program.signal(SIGKILL);
    EXPECT_TRUE(waitForEnd(*child, 2s));
    EXPECT_TRUE(browser.waitForLine("lost Killed._smb._tcp.local.", 3s));
}

TEST_F(EmbeddedEngine, endsAHangingProcessWhenTheProgramIsKilled)
{
    TestPeer program(TestPeer::Where::Here, *network, "Killed", "killed.local");
    ASSERT_TRUE(program.isReady());
    const auto child = engineProcessOf(program.id());
    ASSERT_TRUE(child);
    ::kill(*child, SIGSTOP); // it cannot detect that its parent has died
    program.signal(SIGKILL);
    program.signal(0);
    ::kill(*child, SIGCONT);
    EXPECT_TRUE(waitForEnd(*child, 3s));
}

TEST_F(EmbeddedEngine, hasAProcessThatRefusesAPeerThatTalksNonsense)
{
    BareProcess process(kResponderProgram);
    ASSERT_TRUE(process.next());
    ASSERT_TRUE(process.send("\xff nonsense"));
    EXPECT_EQ(process.exitStatus(), EXIT_FAILURE);
}

TEST_F(EmbeddedEngine, hasAProcessThatSaysAgainAndAgainThatItIsAlive)
{
    const auto since = Clock::now();
    BareProcess process(kResponderProgram);
    EXPECT_TRUE(process.nextAnswer());
    for (int count = 0; count < 2;) {
        const auto message = process.next(2 * kAliveInterval);
        ASSERT_TRUE(message);
        count += std::holds_alternative<Alive>(message->content) ? 1 : 0;
    }
    EXPECT_GE(Clock::now() - since, kAliveInterval);
}

} // namespace

} // namespace quillbox::dnssd
