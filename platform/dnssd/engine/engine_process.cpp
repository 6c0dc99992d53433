#include "platform/dnssd/engine/engine_process.h"

#include "platform/dispatch/fd_watcher.h"
#include "platform/dispatch/timer.h"
#include "platform/dnssd/engine/child_process.h"
#include "platform/dnssd/engine/message_codec.h"
#include "platform/values/backoff.h"

#include <cerrno>
#include <deque>
#include <filesystem>
#include <optional>
#include <span>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include <sys/socket.h>

namespace quillbox::dnssd {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kFirstPause(50);
constexpr milliseconds kLongestPause(30'000);
/// A packet that crashes the process takes a second to do so: the sender of such packets must not
/// make the pauses grow.
constexpr milliseconds kSteadyAfter(800);
constexpr milliseconds kFinishLimit(400);
/// The most requests that wait for the process to read them; 256 services and as many registrations
/// make about 2,500.
constexpr std::size_t kMostWaiting = 8192;
/// How many packets are read at a time, so that the others who use the queue get their turn.
constexpr int kMostInOneTurn = 64;
/// When this process wakes up so late, it was stopped itself, and the other one as well.
constexpr std::chrono::seconds kOverslept(1);

/// A running process. Handlers of its socket hold it weakly, so that they do nothing once it has
/// been replaced.
struct Running {
    Running(const FileDescriptor& program, std::string name, std::error_code& error)
        : process(program, std::move(name), error)
    {
    }

    ChildProcess process;
    std::unique_ptr<FdWatcher> socket;
    Clock::time_point lastSign = Clock::now(); ///< of life
    std::optional<Clock::time_point> speaksSince;
    Generation generation = 0; ///< 0 while it is down
    std::deque<Packet> waiting;
    bool isSocketFull = false;
};

class EngineProcess final : public Engine {
public:
    EngineProcess(std::shared_ptr<DispatchQueue> itsQueue, Log& itsLog,
                  EngineProcessOptions theOptions)
        : queue(std::move(itsQueue)),
          log(itsLog),
          options(std::move(theOptions)),
          program(openProgram(options.program)),
          timer(queue)
    {
    }
    EngineProcess(const EngineProcess&) = delete;
    EngineProcess& operator=(const EngineProcess&) = delete;
    ~EngineProcess() override { stop(); }

    void start(EventHandler theHandler) override
    {
        handler = std::move(theHandler);
        isStarted = true;
        isReportedDown = false;
        since = log.now();
        tell([] { return std::string("is starting"); });
        launchAfter(milliseconds(0));
    }

    void send(const Request& request) override
    {
        if (!running || running->generation == 0)
            return;
        Packet packet = encode(running->generation, request);
        if (packet.empty())
            refuse(std::visit([](const auto& r) { return r.id; }, request));
        else
            enqueue(std::move(packet));
    }

    void stop() override
    {
        if (!std::exchange(isStarted, false))
            return;
        tell([] { return std::string("is stopping"); });
        timer.cancel();
        if (const auto last = std::exchange(running, nullptr); last && last->socket)
            last->process.finish(last->socket->descriptor(), kFinishLimit);
    }

private:
    template <typename Text> void tell(Text&& text)
    {
        log.tell(LogCategory::Engine, [&] { return options.name + ' ' + text(); });
    }

    /// Runs `action` unless the process has been replaced by then.
    template <typename Action> auto unlessReplaced(Action action)
    {
        return [this, weak = std::weak_ptr(running),
                action = std::move(action)](std::error_code error = {}) {
            if (!error && !weak.expired())
                action(*this);
        };
    }

    void launchAfter(milliseconds delay)
    {
        timer.start(delay, [this] { launch(); });
    }

    void launch()
    {
        if (!program.isOpen())
            program = openProgram(options.program); // it may have been installed again
        std::error_code error;
        const std::string name = std::filesystem::path(options.program).filename();
        running = std::make_shared<Running>(program, name, error);
        if (!error)
            running->socket = FdWatcher::adopt(queue, running->process.takeSocket().release(),
                                               FdWatcher::For::Reading, error);
        if (error)
            return lose();
        waitForPackets();
        watchForSilence();
    }

    void waitForPackets()
    {
        running->socket->waitReadable(unlessReplaced([](EngineProcess& self) { self.receive(); }));
    }

    void receive()
    {
        const auto current = running;
        for (int count = 0; count < kMostInOneTurn; ++count) {
            const ssize_t length =
                ::recv(current->socket->descriptor(), buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (length < 0 && errno == EINTR)
                continue;
            if (length < 0 && errno == EAGAIN)
                return waitForPackets();
            const auto message =
                length > 0 ? decodeEvent(std::span(buffer).first(static_cast<std::size_t>(length)))
                           : std::nullopt;
            if (!message || !accept(*message))
                return lose();
            if (running != current)
                return; // the handler has stopped this engine
        }
        queue->async(unlessReplaced([](EngineProcess& self) { self.receive(); }));
    }

    /// False when the process violates the protocol.
    bool accept(const Message<Event>& message)
    {
        running->lastSign = Clock::now();
        if (!running->speaksSince)
            running->speaksSince = running->lastSign;
        const bool isUp = running->generation != 0;
        if (std::holds_alternative<EngineUp>(message.content)) {
            if (isUp || message.generation == 0)
                return false;
            running->generation = message.generation;
            isReportedDown = false;
            tell([&] { return "is up, after " + durationText(log.now() - since); });
            handler(message.content);
        } else if (const auto* down = std::get_if<EngineDown>(&message.content)) {
            running->generation = 0;
            running->waiting.clear();
            reportDown(down->error);
        } else if (isUp && message.generation == running->generation
                   && !std::holds_alternative<Alive>(message.content)) {
            handler(message.content);
        }
        return true;
    }

    void reportDown(std::error_code error)
    {
        if (std::exchange(isReportedDown, true))
            return;
        since = log.now();
        tell([&] { return "is down: " + error.message(); });
        handler(EngineDown{error});
    }

    /// Starts another process later.
    void lose()
    {
        const auto lost = std::exchange(running, nullptr);
        lost->process.kill();
        if (lost->speaksSince && Clock::now() - *lost->speaksSince >= kSteadyAfter)
            backoff.reset();
        launchAfter(backoff.next());
        reportDown(lost->speaksSince ? DnsSdError::EngineUnavailable
                                     : DnsSdError::EngineNotStarted);
    }

    void watchForSilence()
    {
        const auto now = Clock::now();
        const auto until = running->lastSign + options.patience;
        if (until <= now)
            return lose();
        timer.start(std::chrono::ceil<milliseconds>(until - now), [this, until] {
            if (Clock::now() > until + kOverslept)
                running->lastSign = Clock::now();
            watchForSilence();
        });
    }

    void enqueue(Packet packet)
    {
        running->waiting.push_back(std::move(packet));
        if (!running->isSocketFull)
            flush();
        else if (running->waiting.size() > kMostWaiting)
            queue->async(unlessReplaced([](EngineProcess& self) { self.lose(); }));
    }

    void flush()
    {
        while (!running->waiting.empty()) {
            const Packet& packet = running->waiting.front();
            if (::send(running->socket->descriptor(), packet.data(), packet.size(),
                       MSG_NOSIGNAL | MSG_DONTWAIT)
                >= 0) {
                running->waiting.pop_front();
            } else if (errno != EINTR) {
                // Any other error means that the end of the stream is about to be read.
                running->isSocketFull = true;
                if (errno == EAGAIN)
                    running->socket->waitWritable(unlessReplaced([](EngineProcess& self) {
                        self.running->isSocketFull = false;
                        self.flush();
                    }));
                return;
            }
        }
    }

    /// Fails a request that does not fit into a packet: its names or lists exceed what DNS allows.
    void refuse(RequestId id)
    {
        enqueue(encode(running->generation, Request(StopRequest{id})));
        queue->async(unlessReplaced([id](EngineProcess& self) {
            self.handler(Failed{id, DnsSdError::InvalidName});
        }));
    }

    const std::shared_ptr<DispatchQueue> queue;
    Log& log;
    const EngineProcessOptions options;
    FileDescriptor program;
    Timer timer; ///< for the next launch, or for the silence of the process that runs
    Backoff backoff{kFirstPause, kLongestPause};
    EventHandler handler;
    Log::Clock::time_point since; ///< when it started or went down; for the log
    std::shared_ptr<Running> running;
    std::vector<std::uint8_t> buffer = std::vector<std::uint8_t>(kMaximumPacketLength);
    bool isStarted = false;
    bool isReportedDown = false;
};

} // namespace

std::string engineProgram(const std::string& name)
{
    std::error_code error;
    const auto folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    const auto beside = folder / name;
    return std::filesystem::exists(beside, error) ? beside : folder / QUILLBOX_LIBEXEC / name;
}

std::unique_ptr<Engine> makeEngineProcess(std::shared_ptr<DispatchQueue> queue, Log& log,
                                          EngineProcessOptions options)
{
    return std::make_unique<EngineProcess>(std::move(queue), log, std::move(options));
}

} // namespace quillbox::dnssd
