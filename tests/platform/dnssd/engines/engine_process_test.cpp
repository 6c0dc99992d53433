#include "platform/dnssd/engine/engine_process.h"
#include "platform/dnssd/engine/message_codec.h"
#include "tests/platform/dnssd/engines/engine_on_pool.h"
#include "tests/platform/dnssd/engines/event_recorder.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace quillbox::dnssd {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Makes a shell script that knows its own path as `$me`, since it is started by a descriptor.
std::string writeScript(const std::string& name, const std::string& script)
{
    std::string path = testing::TempDir() + name + std::to_string(::getpid());
    std::ofstream(path) << "#!/bin/bash\nme='" << path << "'\n" << script << '\n';
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    return path;
}

/// A program that behaves as an engine process in this way, and what the engine then reports.
class FalseProcess final {
public:
    FalseProcess(const std::string& name, const std::string& script,
                 std::chrono::milliseconds patience = 1h)
        : path(writeScript(name, script)),
          engine(onPool({.program = path, .name = "false", .patience = patience}))
    {
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

    void send(Request request) { engine->send(std::move(request)); }

    /// Makes the file `${me}NAME` that the script looks for.
    void mark(const std::string& name)
    {
        marks.push_back(name);
        std::ofstream(path + name) << '\n';
    }

    /// Waits for the script to make the file `${me}NAME`.
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
        for (RequestId id = 100; id < 5'000; ++id)
            send(StopRequest{id});
        ASSERT_TRUE(waitForTurn(99));
    }

    /// Waits until the engine has taken everything that was sent up to now, which it tells by
    /// refusing a request with this id, as it does with all that fit into no packet.
    bool waitForTurn(RequestId id)
    {
        send(BrowseRequest{id, std::string(70'000, 'x')});
        return events.waitForEvent(Failed{id, DnsSdError::InvalidName});
    }

    EventRecorder events;
    std::atomic<pid_t> thread = 0; ///< the engine's, once it has told something

private:
    const std::string path;
    std::vector<std::string> marks;
    const std::unique_ptr<EngineOnPool> engine;
};

std::string escaped(std::uint8_t byte)
{
    std::array<char, 5> code{};
    std::snprintf(code.data(), code.size(), "\\x%02x", static_cast<unsigned>(byte));
    return code.data();
}

/// Shell commands that send an event to the engine, as one packet, and that wait for ever.
std::string saying(const Event& event, Generation generation = 1)
{
    std::string text = "printf '";
    for (const std::uint8_t byte : encode(generation, event))
        text += escaped(byte);
    return text + "' >&3; ";
}
const std::string kStaying = "exec sleep 60";

/// A shell command that reads a packet and is true if that is a request to stop something: the
/// first byte of a packet tells its kind, and reading one byte of a packet discards the others.
std::string readingStop()
{
    return "read -r -N1 -u3 kind && [ \"$kind\" = $'"
           + escaped(encode(1, Request(StopRequest{})).front()) + "' ]";
}

/// Shell commands that wait for the mark of this name.
std::string awaiting(const std::string& name)
{
    return "until [ -e ${me}" + name + " ]; do sleep 0.02; done; ";
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

TEST(EngineProcess, leavesNoOpenFileToItsProcess)
{
    // Without FD_CLOEXEC, as a library may open it, and above the descriptors that a process has.
    const int ours = ::fcntl(STDERR_FILENO, F_DUPFD, 100);
    FalseProcess curious("curious", "[ -e /proc/$$/fd/" + std::to_string(ours) + " ] && exit; "
                                        + saying(EngineUp{"pc.local"}) + kStaying);
    EXPECT_TRUE(curious.events.waitFor<EngineUp>());
    EXPECT_EQ(curious.events.count<EngineDown>(), 0U);
    ::close(ours);
}

TEST(EngineProcess, isDownWhileThereIsNoProgram)
{
    const std::string path = testing::TempDir() + "later" + std::to_string(::getpid());
    EventRecorder events;
    const auto engine = onPool({.program = path, .name = "later"});
    engine->start(events.handler());
    EXPECT_TRUE(events.waitForEvent(EngineDown{DnsSdError::EngineNotStarted}));
    std::filesystem::rename(writeScript("rest", saying(EngineUp{"pc.local"}) + kStaying), path);
    EXPECT_TRUE(events.waitFor<EngineUp>());
    EXPECT_EQ(events.count<EngineDown>(), 1U);
    engine->stop();
    std::filesystem::remove(path);
}

TEST(EngineProcess, runsTheProgramThatWasThereWhenItWasMade)
{
    const std::string path = writeScript("first", saying(EngineUp{"first"}) + kStaying);
    EventRecorder events;
    const auto engine = onPool({.program = path, .name = "replaced"});
    std::filesystem::rename(writeScript("second", saying(EngineUp{"second"}) + kStaying), path);
    engine->start(events.handler());
    EXPECT_TRUE(events.waitForEvent(EngineUp{"first"}));
    engine->stop();
    std::filesystem::remove(path);
}

TEST(EngineProcess, replacesAProcessThatDoesNotComeUp)
{
    FalseProcess mute("mute", kStaying, 200ms);
    EXPECT_TRUE(mute.events.waitFor<EngineDown>(3s));
    EXPECT_EQ(mute.events.count<EngineUp>(), 0U);
}

TEST(EngineProcess, replacesAProcessThatFallsSilent)
{
    FalseProcess silent("silent", saying(EngineUp{"pc.local"}) + kStaying, 500ms);
    EXPECT_TRUE(silent.events.waitFor<EngineUp>(3s));
    EXPECT_TRUE(silent.events.waitFor<EngineDown>(3s));
    EXPECT_TRUE(silent.events.waitForCount<EngineUp>(2, 3s));
}

TEST(EngineProcess, keepsAProcessThatSaysThatItIsAlive)
{
    FalseProcess living(
        "living", saying(EngineUp{"pc.local"}) + "while sleep 0.1; do " + saying(Alive{}) + "done",
        1s);
    EXPECT_TRUE(living.events.waitFor<EngineUp>(3s));
    EXPECT_FALSE(living.events.waitFor<EngineDown>(1500ms));
    EXPECT_EQ(living.events.all().size(), 1U) << "only the engine is told";
}

TEST(EngineProcess, passesOnNothingOfAnotherGeneration)
{
    FalseProcess odd("odd", saying(Settled{1}, 0) + saying(Settled{2}, 1)
                                + saying(EngineUp{"pc.local"}, 1) + saying(Settled{3}, 0)
                                + saying(Settled{4}, 2) + saying(Settled{5}, 1) + kStaying);
    EXPECT_TRUE(odd.events.waitForEvent(Settled{5}));
    EXPECT_EQ(odd.events.all(), (std::vector<Event>{EngineUp{"pc.local"}, Settled{5}}));
}

TEST(EngineProcess, refusesAProcessThatComesUpTwice)
{
    const std::string up = saying(EngineUp{"pc.local"});
    FalseProcess twice("twice", up + up + kStaying);
    EXPECT_TRUE(twice.events.waitFor<EngineDown>(3s));
    EXPECT_EQ(twice.events.all().front(), Event(EngineUp{"pc.local"}));
    EXPECT_TRUE(std::holds_alternative<EngineDown>(twice.events.all().at(1)));
}

TEST(EngineProcess, goesDownAndUpWithTheSameProcess)
{
    const EngineDown down{DnsSdError::NotFound};
    FalseProcess again("again", saying(down, 0) + saying(EngineUp{"pc.local"}, 1) + saying(down, 1)
                                    + saying(down, 1) + saying(Settled{1}, 1)
                                    + saying(EngineUp{"pc.local"}, 2) + saying(Settled{2}, 1)
                                    + saying(Settled{3}, 2) + kStaying);
    EXPECT_TRUE(again.events.waitForEvent(Settled{3}));
    EXPECT_EQ(again.events.all(), (std::vector<Event>{down, EngineUp{"pc.local"}, down,
                                                      EngineUp{"pc.local"}, Settled{3}}));
}

TEST(EngineProcess, isDownWhenItsProgramEndsAtOnce)
{
    EventRecorder events;
    const auto engine = onPool({.program = "/bin/true", .name = "true"});
    engine->start(events.handler());
    EXPECT_TRUE(events.waitForEvent(EngineDown{DnsSdError::EngineNotStarted}));
}

TEST(EngineProcess, endsARequestWhoseChangeFitsIntoNoPacket)
{
    FalseProcess reader("reader", saying(EngineUp{"pc.local"}) + readingStop() + " && "
                                      + saying(Settled{1}) + kStaying);
    ASSERT_TRUE(reader.events.waitFor<EngineUp>());
    EXPECT_TRUE(reader.waitForTurn(1));
    EXPECT_TRUE(reader.events.waitForEvent(Settled{1}));
}

TEST(EngineProcess, goesOnSendingToAProcessThatReadsAgain)
{
    FalseProcess slow("slow", saying(EngineUp{"pc.local"}) + awaiting("read") + "while "
                                  + readingStop() + "; do :; done; " + saying(Settled{1})
                                  + kStaying);
    ASSERT_TRUE(slow.events.waitFor<EngineUp>());
    slow.fillSocket();
    slow.send(AddressRequest{1, "phone.local", Family::IPv4});
    slow.mark("read");
    EXPECT_TRUE(slow.events.waitForEvent(Settled{1}, 20s));
}

TEST(EngineProcess, sendsNothingToAProcessThatWasMeantForTheOneBefore)
{
    // The first process reads nothing and then violates the protocol; the second one tells whether
    // a request to stop something is the first that it reads.
    FalseProcess two("two", saying(EngineUp{"pc.local"}) + "if [ -e ${me}end ]; then "
                                + readingStop() + " || " + saying(Settled{1}) + kStaying + "; fi; "
                                + awaiting("end") + saying(EngineUp{"pc.local"}) + kStaying);
    ASSERT_TRUE(two.events.waitFor<EngineUp>());
    two.fillSocket();
    two.mark("end");
    ASSERT_TRUE(two.events.waitForCount<EngineUp>(2));
    two.send(AddressRequest{1, "phone.local", Family::IPv4});
    EXPECT_TRUE(two.events.waitForEvent(Settled{1}));
}

TEST(EngineProcess, dropsWhatIsSentWhileItsProcessStarts)
{
    FalseProcess two("starting", "if [ -e ${me}end ]; then echo >${me}second; " + awaiting("up")
                                     + "fi; " + saying(EngineUp{"pc.local"}) + awaiting("end")
                                     + "[ -e ${me}second ] || " + saying(EngineUp{"pc.local"})
                                     + kStaying);
    ASSERT_TRUE(two.events.waitFor<EngineUp>());
    two.mark("end");
    ASSERT_TRUE(two.waitForMark("second"));
    two.send(BrowseRequest{1, std::string(70'000, 'x')});
    two.mark("up");
    ASSERT_TRUE(two.events.waitForCount<EngineUp>(2));
    EXPECT_TRUE(two.waitForTurn(2));
    EXPECT_EQ(two.events.count<Failed>(), 1U);
}

TEST(EngineProcess, givesItsProcessTimeAfterAStandstillOfItsOwn)
{
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
    gate = pipe[0];
    std::signal(SIGUSR2, &stayAtTheGate);
    {
        FalseProcess still("still", saying(EngineUp{"pc.local"}) + kStaying, 2s);
        ASSERT_TRUE(still.events.waitFor<EngineUp>());
        ASSERT_TRUE(waitForSleep(still.thread));
        ASSERT_EQ(::syscall(SYS_tgkill, ::getpid(), still.thread.load(), SIGUSR2), 0);
        EXPECT_FALSE(still.events.waitFor<EngineDown>(3500ms)) << "its thread stands still";
        ASSERT_EQ(::write(pipe[1], "x", 1), 1);
        EXPECT_TRUE(still.waitForTurn(1));
        EXPECT_TRUE(still.waitForTurn(2)) << "still the first process";
        EXPECT_EQ(still.events.count<EngineDown>(), 0U);
    }
    std::signal(SIGUSR2, SIG_DFL);
    for (const int descriptor : pipe)
        ::close(descriptor);
}

} // namespace

} // namespace quillbox::dnssd
