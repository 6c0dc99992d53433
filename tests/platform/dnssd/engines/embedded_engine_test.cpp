#include "platform/dnssd/engine/embedded_engine.h"
#include "platform/dnssd/engine/message_codec.h"
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
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

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
        engine->start([this, record = events.handler()](const Event& event) {
            thread = ::gettid();
            record(event);
        });
    }
    FalseProcess(const FalseProcess&) = delete;
    FalseProcess& operator=(const FalseProcess&) = delete;
    ~FalseProcess()
    {
        engine->stop();
        std::filesystem::remove(path);
        for (const std::string& name : marks)
            std::filesystem::remove(path + name);
    }

    void send(Generation generation, Request request)
    {
        engine->send(generation, std::move(request));
    }

    /// Makes the file `$0NAME` that the script looks for.
    void mark(const std::string& name)
    {
        marks.push_back(name);
        std::ofstream(path + name) << '\n';
    }

    /// Waits for the script to make the file `$0NAME`.
    bool waitForMark(const std::string& name)
    {
        marks.push_back(name);
        const auto end = Clock::now() + 8s;
        while (!std::filesystem::exists(path + name) && Clock::now() < end)
            std::this_thread::sleep_for(10ms);
        return std::filesystem::exists(path + name);
    }

    /// Sends something to a process that is up and reads nothing, until the engine has more to
    /// send than the socket takes.
    void fillSocket()
    {
        for (AskId id = 100; id < 5'000; ++id)
            send(1, StopRequest{id});
        ASSERT_TRUE(waitForTurn(1, 99));
    }

    /// Waits until the engine has taken everything that was sent up to now, which it tells by
    /// refusing a request with this id, as it does with all that fit into no packet.
    bool waitForTurn(Generation generation, AskId id)
    {
        send(generation, BrowseRequest{id, std::string(70'000, 'x')});
        return events.waitForEvent(Failed{id, DnsSdError::InvalidName});
    }

    EventRecorder events;
    std::atomic<pid_t> thread = 0; ///< the engine's, once it has told something

private:
    std::string path;
    std::vector<std::string> marks;
    std::unique_ptr<Engine> engine;
};

std::string escaped(std::uint8_t byte)
{
    std::array<char, 5> code{};
    std::snprintf(code.data(), code.size(), "\\x%02x", static_cast<unsigned>(byte));
    return code.data();
}

/// Shell commands that send an event to the engine, as one packet, and that wait for ever.
std::string saying(const Event& event)
{
    std::string text = "printf '";
    for (const std::uint8_t byte : encode(event))
        text += escaped(byte);
    return text + "' >&3; ";
}
const std::string kStaying = "exec sleep 60";

/// A shell command that reads a packet and is true if that is a request to stop something: the
/// first byte of a packet tells its kind, and reading one byte of a packet discards the others.
std::string readingStop()
{
    return "read -r -N1 -u3 kind && [ \"$kind\" = $'"
           + escaped(encode(Request(StopRequest{})).front()) + "' ]";
}

/// Shell commands that wait for the mark of this name.
std::string awaiting(const std::string& name)
{
    return "until [ -e $0" + name + " ]; do sleep 0.02; done; ";
}

/// Waits until this thread of the test sleeps; false after a while.
bool waitForSleep(pid_t thread)
{
    const auto end = Clock::now() + 8s;
    for (std::string state; Clock::now() < end; std::this_thread::yield()) {
        std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/stat");
        std::getline(status, state);
        if (state.find(") S ") != std::string::npos)
            return true;
    }
    return false;
}

/// The end of a pipe at which a thread stays while it handles a signal.
int gate = -1;

void stayAtTheGate(int /*signal*/)
{
    char byte = 0;
    while (::read(gate, &byte, 1) < 0 && errno == EINTR) {
    }
}

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
}

TEST_F(EmbeddedEngine, leavesNoOpenFileToItsProcess)
{
    const int ours = ::open("/dev/zero", O_RDONLY); // NOLINT(*-cloexec-*): as a library may open it
    FalseProcess curious("curious",
                         "[ -e /proc/$$/fd/" + std::to_string(ours) + " ] && exit; "
                             + saying(EngineUp{"pc.local"}) + kStaying,
                         {.startPatience = 1h, .patience = 1h});
    EXPECT_TRUE(curious.events.waitForEvent(EngineUp{"pc.local", 1}));
    EXPECT_EQ(curious.events.count<EngineDown>(), 0U);
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

TEST_F(EmbeddedEngine, endsARequestWhoseChangeFitsIntoNoPacket)
{
    FalseProcess reader("reader",
                        saying(EngineUp{"pc.local"}) + readingStop() + " && " + saying(Settled{1})
                            + kStaying,
                        {.startPatience = 1h, .patience = 1h});
    ASSERT_TRUE(reader.events.waitFor<EngineUp>());
    EXPECT_TRUE(reader.waitForTurn(1, 1));
    EXPECT_TRUE(reader.events.waitForEvent(Settled{1}));
}

TEST_F(EmbeddedEngine, goesOnSendingToAProcessThatReadsAgain)
{
    FalseProcess slow("slow",
                      saying(EngineUp{"pc.local"}) + awaiting("read") + "while " + readingStop()
                          + "; do :; done; " + saying(Settled{1}) + kStaying,
                      {.startPatience = 1h, .patience = 1h});
    ASSERT_TRUE(slow.events.waitFor<EngineUp>());
    slow.fillSocket();
    slow.send(1, AddressRequest{1, "phone.local", Family::IPv4});
    slow.mark("read");
    EXPECT_TRUE(slow.events.waitForEvent(Settled{1}, 20s));
}

TEST_F(EmbeddedEngine, sendsNothingToAProcessThatWasMeantForTheOneBefore)
{
    // The first process reads nothing and then violates the protocol; the second one tells whether
    // a request to stop something is the first that it reads.
    FalseProcess two("two",
                     saying(EngineUp{"pc.local"}) + "if [ -e $0end ]; then " + readingStop()
                         + " || " + saying(Settled{1}) + kStaying + "; fi; " + awaiting("end")
                         + saying(EngineUp{"pc.local"}) + kStaying,
                     {.startPatience = 1h, .patience = 1h});
    ASSERT_TRUE(two.events.waitFor<EngineUp>());
    two.fillSocket();
    two.mark("end");
    ASSERT_TRUE(two.events.waitForEvent(EngineUp{"pc.local", 2}));
    two.send(2, AddressRequest{1, "phone.local", Family::IPv4});
    EXPECT_TRUE(two.events.waitForEvent(Settled{1}));
}

TEST_F(EmbeddedEngine, dropsWhatIsSentWhileItsProcessStarts)
{
    FalseProcess two("starting",
                     "if [ -e $0end ]; then echo >$0second; " + awaiting("up") + "fi; "
                         + saying(EngineUp{"pc.local"}) + awaiting("end") + "[ -e $0second ] || "
                         + saying(EngineUp{"pc.local"}) + kStaying,
                     {.startPatience = 1h, .patience = 1h});
    ASSERT_TRUE(two.events.waitFor<EngineUp>());
    two.mark("end");
    ASSERT_TRUE(two.waitForMark("second"));
    two.send(1, BrowseRequest{1, std::string(70'000, 'x')});
    two.mark("up");
    ASSERT_TRUE(two.events.waitForEvent(EngineUp{"pc.local", 2}));
    EXPECT_TRUE(two.waitForTurn(2, 2));
    EXPECT_EQ(two.events.count<Failed>(), 1U);
}

TEST_F(EmbeddedEngine, givesItsProcessTimeAfterAStandstillOfItsOwn)
{
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
    gate = pipe[0];
    std::signal(SIGUSR2, &stayAtTheGate);
    {
        FalseProcess still("still", saying(EngineUp{"pc.local"}) + kStaying,
                           {.startPatience = 1h, .patience = 2s});
        ASSERT_TRUE(still.events.waitFor<EngineUp>());
        ASSERT_TRUE(waitForSleep(still.thread));
        ASSERT_EQ(::syscall(SYS_tgkill, ::getpid(), still.thread.load(), SIGUSR2), 0);
        EXPECT_FALSE(still.events.waitFor<EngineDown>(3500ms)) << "its thread stands still";
        ASSERT_EQ(::write(pipe[1], "x", 1), 1);
        EXPECT_TRUE(still.waitForTurn(1, 1));
        EXPECT_TRUE(still.waitForTurn(1, 2)) << "still the first process";
        EXPECT_EQ(still.events.count<EngineDown>(), 0U);
    }
    std::signal(SIGUSR2, SIG_DFL);
    for (const int descriptor : pipe)
        ::close(descriptor);
}

/// An engine process connected to the test instead of to an `EmbeddedEngine`.
class BareEngineProcess final {
public:
    BareEngineProcess()
    {
        std::array<int, 2> pair{};
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair.data()) != 0)
            return;
        process = ::fork();
        if (process == 0) {
            ::dup2(pair[1], 3);
            ::execl("/proc/self/exe", "engine", "--dns-sd-engine", nullptr);
            ::_exit(127);
        }
        ::close(pair[1]);
        socket = pair[0];
    }
    BareEngineProcess(const BareEngineProcess&) = delete;
    BareEngineProcess& operator=(const BareEngineProcess&) = delete;
    ~BareEngineProcess()
    {
        ::close(socket);
        if (process > 0) {
            ::kill(process, SIGKILL);
            ::waitpid(process, nullptr, 0);
        }
    }

    /// Its next event; nothing once it has ended, or after the limit.
    std::optional<Event> next(std::chrono::milliseconds limit = 8s) const
    {
        pollfd waiting{socket, POLLIN, 0};
        if (::poll(&waiting, 1, static_cast<int>(limit.count())) != 1)
            return std::nullopt;
        std::array<std::uint8_t, 512> bytes{};
        const ssize_t length = ::recv(socket, bytes.data(), bytes.size(), 0);
        return length > 0 ? decodeEvent(std::span(bytes).first(static_cast<std::size_t>(length)))
                          : std::nullopt;
    }

    bool send(std::string_view bytes) const
    {
        return ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL)
               == static_cast<ssize_t>(bytes.size());
    }

    /// Waits for its end, and returns its exit status.
    std::optional<int> exitStatus()
    {
        int status = 0;
        if (!waitForEnd(process, 5s) || ::waitpid(std::exchange(process, -1), &status, 0) < 0
            || !WIFEXITED(status))
            return std::nullopt;
        return WEXITSTATUS(status);
    }

private:
    pid_t process = -1;
    int socket = -1;
};

TEST_F(EmbeddedEngine, refusesAPeerThatTalksNonsense)
{
    BareEngineProcess process;
    ASSERT_TRUE(process.next());
    ASSERT_TRUE(process.send("\xff nonsense"));
    EXPECT_EQ(process.exitStatus(), EXIT_FAILURE);
}

TEST_F(EmbeddedEngine, hasAProcessThatSaysAgainAndAgainThatItIsAlive)
{
    const auto since = Clock::now();
    BareEngineProcess process;
    const auto up = process.next();
    ASSERT_TRUE(up && std::holds_alternative<EngineUp>(*up));
    EXPECT_EQ(process.next(), Event(Alive{}));
    EXPECT_EQ(process.next(), Event(Alive{}));
    EXPECT_GE(Clock::now() - since, kAliveInterval);
}

} // namespace

} // namespace quillbox::dnssd
