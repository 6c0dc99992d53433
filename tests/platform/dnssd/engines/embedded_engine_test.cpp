#include "platform/dnssd/embedded_engine.h"
#include "platform/dnssd/message_codec.h"
#include "tests/platform/dnssd/engines/engine_network_test.h"
#include "tests/platform/dnssd/engines/engine_process_finder.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillbox::dnssd {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// The engine process that `parent` has started; nothing unless there is exactly one.
std::optional<pid_t> engineProcessOf(pid_t parent)
{
    const auto processes = engineProcessesOf(parent);
    return processes.size() == 1 ? std::optional(processes.front()) : std::nullopt;
}

/// A program that behaves as an engine process in this way, and what the engine then reports.
class FalseProcess final {
public:
    FalseProcess(const std::string& name, const std::string& script, EmbeddedEngineOptions options)
    {
        options.executable = testing::TempDir() + name + std::to_string(::getpid());
        std::ofstream(options.executable) << "#!/bin/bash\n" << script << '\n';
        std::filesystem::permissions(options.executable, std::filesystem::perms::owner_all);
        path = options.executable;
        engine = makeEmbeddedEngine(options);
        engine->start(events.handler());
    }
    FalseProcess(const FalseProcess&) = delete;
    FalseProcess& operator=(const FalseProcess&) = delete;
    ~FalseProcess()
    {
        engine->stop();
        std::filesystem::remove(path);
    }

    EventRecorder events;

private:
    std::string path;
    std::unique_ptr<Engine> engine;
};

/// Shell commands that send an event to the engine, as one packet, and that wait for ever.
std::string saying(const Event& event)
{
    std::string text = "printf '";
    for (const std::uint8_t byte : encode(event)) {
        std::array<char, 5> code{};
        std::snprintf(code.data(), code.size(), "\\x%02x", static_cast<unsigned>(byte));
        text += code.data();
    }
    return text + "' >&3; ";
}
const std::string kStaying = "exec sleep 60";

/// Waits for the exit of a process, which need not be a child of this one.
bool waitForEnd(pid_t process, std::chrono::milliseconds limit)
{
    const int descriptor = static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
    if (descriptor < 0)
        return errno == ESRCH;
    pollfd waiting{descriptor, POLLIN, 0};
    const bool hasEnded = ::poll(&waiting, 1, static_cast<int>(limit.count())) == 1;
    ::close(descriptor);
    return hasEnded;
}

std::string statusLine(pid_t process, const std::string& name)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name + ":"))
            return line;
    }
    return {};
}

class EmbeddedEngine : public EngineNetworkTest {
protected:
    void SetUp() override
    {
        EngineNetworkTest::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        engine->start([this, record = events.handler()](const Event& event) {
            record(event);
            if (const auto* up = std::get_if<EngineUp>(&event); up != nullptr && isReregistering)
                engine->send(up->generation, registration(1, "Quillbox", "quillbox-1.local"));
        });
        ASSERT_TRUE(events.waitFor<EngineUp>());
    }
    void TearDown() override { engine->stop(); }

    std::atomic<bool> isReregistering = true; ///< read on the engine's thread
    EventRecorder events;
    std::unique_ptr<Engine> engine = makeEmbeddedEngine();
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

    // A file that this process opens is not open in the engine process.
    const auto folder = "/proc/" + std::to_string(*child) + "/fd";
    const auto ourSocket = [&](int descriptor) {
        return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor));
    };
    const int ours = ::open("/dev/zero", O_RDONLY);
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::error_code ignored;
        EXPECT_NE(std::filesystem::read_symlink(entry.path(), ignored), ourSocket(ours));
    }
    ::close(ours);
}

TEST_F(EmbeddedEngine, isDownWhenTheExecutableIsNone)
{
    EventRecorder others;
    const auto other = makeEmbeddedEngine({.executable = "/nonexistent"});
    other->start(others.handler());
    EXPECT_TRUE(others.waitFor<EngineDown>());
    other->stop();
    EXPECT_EQ(others.count<EngineDown>(), 1U);
    EXPECT_EQ(others.count<EngineUp>(), 0U);
}

TEST_F(EmbeddedEngine, replacesAProcessThatDoesNotComeUp)
{
    FalseProcess mute("mute", kStaying, {.startPatience = 200ms, .patience = 1h});
    EXPECT_TRUE(mute.events.waitFor<EngineDown>(3s));
    EXPECT_EQ(mute.events.count<EngineUp>(), 0U);
}

TEST_F(EmbeddedEngine, replacesAProcessThatFallsSilent)
{
    FalseProcess silent("silent", saying(EngineUp{"pc.local"}) + kStaying,
                        {.startPatience = 1h, .patience = 200ms});
    EXPECT_TRUE(silent.events.waitForEvent(EngineUp{"pc.local", 1}, 3s));
    EXPECT_TRUE(silent.events.waitFor<EngineDown>(3s));
    EXPECT_TRUE(silent.events.waitForEvent(EngineUp{"pc.local", 2}, 3s));
}

TEST_F(EmbeddedEngine, keepsAProcessThatSaysThatItIsAlive)
{
    FalseProcess living(
        "living", saying(EngineUp{"pc.local"}) + "while sleep 0.1; do " + saying(Alive{}) + "done",
        {.startPatience = 1h, .patience = 1s});
    EXPECT_TRUE(living.events.waitFor<EngineUp>(3s));
    EXPECT_FALSE(living.events.waitFor<EngineDown>(1500ms));
    EXPECT_EQ(living.events.all().size(), 1U) << "only the engine is told";
}

TEST_F(EmbeddedEngine, refusesAProcessThatSaysSomethingBeforeItIsUp)
{
    FalseProcess early("early", saying(Settled{1}) + kStaying,
                       {.startPatience = 1h, .patience = 1h});
    EXPECT_TRUE(early.events.waitFor<EngineDown>(3s));
    EXPECT_EQ(early.events.count<Settled>(), 0U);
}

TEST_F(EmbeddedEngine, refusesAProcessThatComesUpTwice)
{
    const std::string up = saying(EngineUp{"pc.local"});
    FalseProcess twice("twice", up + up + kStaying, {.startPatience = 1h, .patience = 1h});
    EXPECT_TRUE(twice.events.waitFor<EngineDown>(3s));
    EXPECT_EQ(twice.events.all().front(), Event(EngineUp{"pc.local", 1}));
    EXPECT_TRUE(std::holds_alternative<EngineDown>(twice.events.all().at(1)));
}

TEST_F(EmbeddedEngine, refusesAProcessThatSaysThatItIsDown)
{
    FalseProcess down("down",
                      saying(EngineUp{"pc.local"})
                          + saying(EngineDown{make_error_code(DnsSdError::NotFound)}) + kStaying,
                      {.startPatience = 1h, .patience = 1h});
    EXPECT_TRUE(
        down.events.waitForEvent(EngineDown{make_error_code(DnsSdError::EngineUnavailable)}, 3s));
}

TEST_F(EmbeddedEngine, replacesAProcessThatReadsNothing)
{
    const auto child = engineProcessOf(::getpid());
    ASSERT_TRUE(child);
    ::kill(*child, SIGSTOP);
    events.clear();
    for (AskId id = 2; id < 10'000; ++id)
        engine->send(1, StopRequest{id});
    EXPECT_TRUE(events.waitFor<EngineDown>(2s)) << "long before it counts as silent";
    EXPECT_TRUE(events.waitFor<EngineUp>());
    EXPECT_FALSE(std::filesystem::exists("/proc/" + std::to_string(*child)));
}

TEST_F(EmbeddedEngine, namesItsProcessAfterTheProgram)
{
    const auto child = engineProcessOf(::getpid());
    ASSERT_TRUE(child);
    std::ifstream file("/proc/" + std::to_string(*child) + "/cmdline");
    std::string name;
    std::getline(file, name, '\0');
    EXPECT_EQ(name, program_invocation_short_name);
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

TEST_F(EmbeddedEngine, isDownWhenTheExecutableIsAnother)
{
    EventRecorder others;
    const auto other = makeEmbeddedEngine({.executable = "/bin/true"});
    other->start(others.handler());
    EXPECT_TRUE(others.waitFor<EngineDown>());
    other->stop();
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

TEST_F(EmbeddedEngine, refusesAPeerThatTalksNonsense)
{
    // An engine process connected to this test instead of to an `EmbeddedEngine`.
    std::array<int, 2> pair{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair.data()), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(pair[1], 3);
        ::execl("/proc/self/exe", "engine", "--dns-sd-engine", nullptr);
        ::_exit(127);
    }
    ::close(pair[1]);
    std::array<char, 512> bytes{};
    ASSERT_GT(::recv(pair[0], bytes.data(), bytes.size(), 0), 0);
    ASSERT_EQ(::send(pair[0], "\xff nonsense", 10, 0), 10);
    int status = 0;
    ASSERT_TRUE(waitForEnd(child, 3s));
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == EXIT_FAILURE);
    ::close(pair[0]);
}

} // namespace

} // namespace quillbox::dnssd
