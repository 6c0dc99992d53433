#include "platform/dnssd/embedded_engine.h"

#include "platform/dnssd/engine_child_process.h"
#include "platform/dnssd/engine_pause.h"
#include "platform/dnssd/engine_thread.h"
#include "platform/dnssd/message_codec.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <optional>
#include <span>
#include <utility>

#include <poll.h>
#include <sys/socket.h>

namespace quillbox::dnssd {

namespace {

using Clock = std::chrono::steady_clock;
using Mailbox = EngineMailbox<Request>;

constexpr std::chrono::milliseconds kFirstPause(100);
constexpr std::chrono::seconds kMaximumPause(30);
constexpr std::chrono::seconds kSteadyAfter(60);
/// How long an engine process may take to report EngineUp; after that it is killed.
constexpr std::chrono::seconds kStartPatience(5);
constexpr std::chrono::milliseconds kFinishLimit(400);

class EmbeddedLoop final {
public:
    EmbeddedLoop(Mailbox& theMailbox, EmbeddedEngineOptions theOptions)
        : mailbox(theMailbox), options(std::move(theOptions))
    {
    }

    void run()
    {
        while (!isStopping) {
            startIfDue();
            wait();
            takeRequests();
            if (child)
                sendRequests();
            if (child)
                receiveEvents();
            if (child && !isUp && Clock::now() >= childSince + kStartPatience)
                loseChild();
        }
        if (child)
            child->finish(kFinishLimit);
    }

private:
    void startIfDue()
    {
        const auto now = Clock::now();
        if (child || now < nextStart)
            return;
        childSince = now;
        child.emplace(options.executable);
        if (child->descriptor() < 0)
            loseChild();
    }

    void wait()
    {
        std::array<pollfd, 2> waiting{};
        waiting[0] = {mailbox.descriptor(), POLLIN, 0};
        waiting[1] = {-1, 0, 0};
        std::optional<Clock::time_point> deadline;
        if (child) {
            const int events = outgoing.empty() ? POLLIN : POLLIN | POLLOUT;
            waiting[1] = {child->descriptor(), static_cast<short>(events), 0};
            if (!isUp)
                deadline = childSince + kStartPatience;
        } else {
            deadline = nextStart;
        }
        int timeout = -1;
        if (deadline) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
            timeout = static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
        }
        ::poll(waiting.data(), waiting.size(), timeout);
    }

    void takeRequests()
    {
        auto taken = mailbox.take();
        isStopping = taken.isStopping;
        if (!child || !isUp)
            return;
        for (const Request& request : taken.items) {
            Packet packet = encode(request);
            if (!packet.empty())
                outgoing.push_back(std::move(packet));
            else
                refuse(request);
        }
    }

    /// Fails a request that does not fit into a packet: its names or lists exceed what DNS allows.
    void refuse(const Request& request)
    {
        const AskId id = std::visit([](const auto& r) { return r.id; }, request);
        mailbox.emit(Failed{id, DnsSdError::InvalidName});
        outgoing.push_back(encode(Request(StopRequest{id})));
    }

    void sendRequests()
    {
        while (!outgoing.empty()) {
            const Packet& packet = outgoing.front();
            if (::send(child->descriptor(), packet.data(), packet.size(),
                       MSG_NOSIGNAL | MSG_DONTWAIT)
                < 0) {
                // The process's last events, and then its end of file, are still to be read.
                if (errno != EAGAIN && errno != EINTR)
                    outgoing.clear();
                return;
            }
            outgoing.pop_front();
        }
    }

    /// Receives the pending events, but only so many at a time that requests get their turn.
    void receiveEvents()
    {
        constexpr int kMaximumEventsATurn = 256;
        for (int count = 0; child && count < kMaximumEventsATurn; ++count) {
            const ssize_t length =
                ::recv(child->descriptor(), packetBuffer.data(), packetBuffer.size(), MSG_DONTWAIT);
            if (length < 0 && (errno == EAGAIN || errno == EINTR))
                return;
            const auto event =
                length > 0
                    ? decodeEvent(std::span(packetBuffer).first(static_cast<std::size_t>(length)))
                    : std::nullopt;
            if (!event || !accept(*event))
                loseChild();
        }
    }

    /// False when the process violates the protocol.
    bool accept(const Event& event)
    {
        if (std::holds_alternative<EngineDown>(event))
            return false;
        if (std::holds_alternative<EngineUp>(event) == isUp)
            return false;
        if (!isUp) {
            isUp = true;
            isReportedDown = false;
            pause.began(Clock::now());
        }
        mailbox.emit(event);
        return true;
    }

    void loseChild()
    {
        child.reset();
        outgoing.clear();
        isUp = false;
        const auto now = Clock::now();
        nextStart = now + pause.next(now);
        if (!std::exchange(isReportedDown, true))
            mailbox.emit(EngineDown{make_error_code(DnsSdError::EngineUnavailable)});
    }

    Mailbox& mailbox;
    EmbeddedEngineOptions options;
    std::optional<EngineChildProcess> child;
    Clock::time_point childSince;
    Clock::time_point nextStart = Clock::now();
    EnginePause pause{kFirstPause, kMaximumPause, kSteadyAfter};
    std::deque<Packet> outgoing;
    std::vector<std::uint8_t> packetBuffer = std::vector<std::uint8_t>(kMaximumPacketLength);
    bool isUp = false;
    bool isReportedDown = false;
    bool isStopping = false;
};

class EmbeddedEngine final : public Engine {
public:
    explicit EmbeddedEngine(EmbeddedEngineOptions theOptions) : options(std::move(theOptions)) {}

    void start(EventHandler handler) override
    {
        thread.start(std::move(handler), [settings = options](Mailbox& mailbox) {
            EmbeddedLoop(mailbox, settings).run();
        });
    }

    void send(Request request) override { thread.post(std::move(request)); }

    void stop() override { thread.stop(); }

private:
    EmbeddedEngineOptions options;
    EngineThread<Request> thread;
};

} // namespace

std::unique_ptr<Engine> makeEmbeddedEngine(EmbeddedEngineOptions options)
{
    return std::make_unique<EmbeddedEngine>(std::move(options));
}

} // namespace quillbox::dnssd
