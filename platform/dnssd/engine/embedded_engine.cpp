#include "platform/dnssd/engine/embedded_engine.h"

#include "platform/dnssd/engine/engine_pause.h"
#include "platform/dnssd/engine/engine_thread.h"
#include "platform/dnssd/engine/message_codec.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <span>
#include <utility>

#include <poll.h>
#include <sys/socket.h>

namespace quillbox::dnssd {

namespace {

using Clock = std::chrono::steady_clock;
using Mailbox = EngineMailbox<PostedRequest>;

constexpr std::chrono::milliseconds kFirstPause(50);
constexpr std::chrono::seconds kMaximumPause(30);
/// A packet that crashes the process takes a second to do so: the sender of such packets must not
/// make the pauses grow.
constexpr std::chrono::milliseconds kSteadyAfter(800);
constexpr std::chrono::milliseconds kFinishLimit(400);
/// The most requests that wait for the process to read them; 256 services and as many registrations
/// make about 2,500.
constexpr std::size_t kMaximumOutgoing = 8192;
/// When this process wakes up so late, it was stopped itself, and the other one as well.
constexpr std::chrono::seconds kOverslept(1);

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
            if (child && (Clock::now() >= deadline() || outgoing.size() > kMaximumOutgoing))
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
        lastSign = now;
        child.emplace(options.executable);
        if (child->descriptor() < 0)
            loseChild();
    }

    /// When the process counts as hanging.
    Clock::time_point deadline() const
    {
        return lastSign + (isUp ? options.patience : options.startPatience);
    }

    void wait()
    {
        std::array<pollfd, 2> waiting{};
        waiting[0] = {mailbox.descriptor(), POLLIN, 0};
        waiting[1] = {-1, 0, 0};
        if (child) {
            const int events = outgoing.empty() ? POLLIN : POLLIN | POLLOUT;
            waiting[1] = {child->descriptor(), static_cast<short>(events), 0};
        }
        const auto until = child ? deadline() : nextStart;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
        ::poll(waiting.data(), waiting.size(),
               static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0)));
        if (Clock::now() > until + kOverslept)
            lastSign = Clock::now();
    }

    void takeRequests()
    {
        auto taken = mailbox.take();
        isStopping = taken.isStopping;
        if (!child || !isUp)
            return;
        for (const auto& [requested, request] : taken.items) {
            if (requested != generation)
                continue;
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
                < 0)
                return; // the socket is full, or has events and its end of file to be read
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
            auto event =
                length > 0
                    ? decodeEvent(std::span(packetBuffer).first(static_cast<std::size_t>(length)))
                    : std::nullopt;
            lastSign = Clock::now();
            if (!event || !accept(std::move(*event)))
                loseChild();
        }
    }

    /// False when the process violates the protocol.
    bool accept(Event event)
    {
        if (std::holds_alternative<EngineDown>(event))
            return false;
        auto* up = std::get_if<EngineUp>(&event);
        if ((up != nullptr) == isUp)
            return false;
        if (std::holds_alternative<Alive>(event))
            return true;
        if (up != nullptr) {
            up->generation = ++generation;
            isUp = true;
            isReportedDown = false;
            pause.began(Clock::now());
        }
        mailbox.emit(std::move(event));
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
    Clock::time_point lastSign; ///< of life, from the process
    Clock::time_point nextStart = Clock::now();
    EnginePause pause{kFirstPause, kMaximumPause, kSteadyAfter};
    std::deque<Packet> outgoing;
    std::vector<std::uint8_t> packetBuffer = std::vector<std::uint8_t>(kMaximumPacketLength);
    Generation generation = 0;
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

    void send(Generation generation, Request request) override
    {
        thread.post({generation, std::move(request)});
    }

    void stop() override { thread.stop(); }

private:
    EmbeddedEngineOptions options;
    EngineThread<PostedRequest> thread;
};

} // namespace

std::unique_ptr<Engine> makeEmbeddedEngine(EmbeddedEngineOptions options)
{
    return std::make_unique<EmbeddedEngine>(std::move(options));
}

} // namespace quillbox::dnssd
