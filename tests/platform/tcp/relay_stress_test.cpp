#include "relay/relay_session.h"
#include "tests/fakes/recording_log.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/tcp/tcp_harness.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <map>
#include <ostream>
#include <random>
#include <span>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kSessions = 2000;
constexpr std::size_t kAtOnce = 32;
constexpr std::size_t kRelays = 4;

/// A session without progress for this long has stalled.
constexpr std::chrono::seconds kStandstill{15};

constexpr std::size_t kLargest = 1024UL * 1024 + 1;

/// The data of all streams; each starts at its own offset.
const std::string& source()
{
    static const std::string bytes = pattern(kLargest + 64UL * 1024);
    return bytes;
}

class Dice final {
public:
    explicit Dice(std::size_t seed) : engine_(static_cast<std::mt19937::result_type>(seed)) {}

    std::size_t below(std::size_t limit) { return engine_() % limit; }
    bool oneIn(std::size_t count) { return below(count) == 0; }

    std::size_t size()
    {
        constexpr std::array<std::size_t, 3> kEdges{16UL * 1024, 64UL * 1024, 1024UL * 1024};
        if (oneIn(3))
            return below(3);
        if (oneIn(2))
            return below(20'000);
        return kEdges.at(oneIn(8) ? 2 : below(2)) - 1 + below(3);
    }

private:
    std::mt19937 engine_;
};

/// How a session ends. `who` is the side that ends it.
struct WayToEnd {
    enum class How {
        AfterAll,  ///< when both sides have received everything
        HalfClose, ///< when `who` has sent everything
        Reset,     ///< when `who` has sent `resetAfter` bytes
    };

    How how = How::AfterAll;
    std::size_t who = 0;
    std::size_t resetAfter = 0;
};

/// A byte stream from one side to the other.
struct Stream {
    std::span<const char> bytes;
    std::size_t sent = 0;
    std::size_t received = 0;

    bool isSent() const { return sent == bytes.size(); }
    bool isReceived() const { return received == bytes.size(); }
};

/// One side of a session: a plain non-blocking socket.
class Side final {
public:
    explicit Side(Peer peer) : peer_(std::move(peer))
    {
        ::fcntl(peer_.descriptor(), F_SETFL, O_NONBLOCK);
    }

    pollfd toPoll(const Stream& out, Clock::time_point now) const
    {
        unsigned events = 0;
        if (!hasEnded && now >= pausedUntil_)
            events |= POLLIN;
        if (!out.isSent() && !cannotSend_ && !hasEnded)
            events |= POLLOUT;
        // poll() ignores negative descriptors. It would report a hang-up even if no event is
        // requested.
        return {.fd = events != 0 ? peer_.descriptor() : -1,
                .events = static_cast<short>(events),
                .revents = 0};
    }

    void send(Stream& out, std::size_t most, Dice& dice)
    {
        auto bytes = out.bytes.subspan(out.sent);
        bytes = bytes.first(std::min({bytes.size(), 1 + dice.below(100'000), most}));
        if (bytes.empty())
            return;
        const bool isUrgent = dice.oneIn(16);
        const auto count = ::send(peer_.descriptor(), bytes.data(), isUrgent ? 1 : bytes.size(),
                                  MSG_NOSIGNAL | (isUrgent ? MSG_OOB : 0));
        if (count > 0)
            out.sent += static_cast<std::size_t>(count);
        else
            cannotSend_ = errno != EAGAIN;
    }

    void receive(Stream& in, Dice& dice)
    {
        static std::array<char, 100'000> room;
        const auto count = ::recv(peer_.descriptor(), room.data(), 1 + dice.below(room.size()), 0);
        if (count <= 0) {
            hasEnded = count == 0 || errno != EAGAIN;
            isClean = count == 0;
            return;
        }
        const auto size = static_cast<std::size_t>(count);
        const auto left = in.bytes.subspan(in.received);
        isTrue = isTrue && size <= left.size()
                 && std::equal(room.begin(), room.begin() + count, left.begin());
        in.received += size;
        if (dice.oneIn(8))
            pausedUntil_ = Clock::now() + std::chrono::microseconds(dice.below(4000));
    }

    void shutDownSending() const { peer_.shutDownSending(); }

    void reset()
    {
        peer_.reset();
        hasEnded = true;
    }

    bool hasEnded = false;
    bool isClean = false; ///< valid once `hasEnded`
    bool isTrue = true;   ///< all received bytes match the sent ones

private:
    Peer peer_;
    bool cannotSend_ = false;
    Clock::time_point pausedUntil_;
};

/// A connection through a relay, and both its peers.
class Session final {
public:
    Session(std::size_t number, std::uint16_t relayPort, const PeerListener& phone)
        : number_(number), dice_(number), sides_{makeClient(relayPort), makeServer(phone)}
    {
        for (auto& stream : streams_)
            stream.bytes = std::span(source()).subspan(dice_.below(64UL * 1024), dice_.size());
        ending_ = {.how = static_cast<WayToEnd::How>(dice_.below(3)),
                   .who = dice_.below(2),
                   .resetAfter = 0};
        ending_.resetAfter = dice_.below(streams_.at(ending_.who).bytes.size() + 1);
        endIfDue();
    }

    std::array<pollfd, 2> toPoll(Clock::time_point now) const
    {
        return {sides_[0].toPoll(streams_[0], now), sides_[1].toPoll(streams_[1], now)};
    }

    void take(std::span<const pollfd> told)
    {
        for (std::size_t index = 0; index < 2; ++index) {
            auto& side = sides_.at(index);
            const auto& events = told[index];
            if (events.fd < 0 || events.revents == 0 || side.hasEnded)
                continue;
            lastProgress_ = Clock::now();
            if ((events.revents & POLLOUT) != 0)
                side.send(streams_.at(index), mostToSend(index), dice_);
            if ((events.revents & (POLLIN | POLLHUP | POLLERR)) != 0)
                side.receive(streams_.at(1 - index), dice_);
            endIfDue();
        }
    }

    bool isOver() const { return sides_[0].hasEnded && sides_[1].hasEnded; }
    bool isStanding() const { return Clock::now() - lastProgress_ > kStandstill; }

    void check() const
    {
        EXPECT_TRUE(isOver()) << "no progress: " << *this;
        EXPECT_TRUE(sides_[0].isTrue && sides_[1].isTrue) << *this;
        if (ending_.how != WayToEnd::How::Reset) {
            EXPECT_TRUE(streams_.at(ending_.who).isReceived()) << *this;
        }
        if (ending_.how == WayToEnd::How::AfterAll) {
            EXPECT_TRUE(streams_.at(1 - ending_.who).isReceived()) << *this;
            // Where there is nothing to lose, the relay may end the phone's side with a reset.
            const bool isUnused = streams_[0].bytes.empty() && streams_[1].bytes.empty();
            EXPECT_TRUE(isUnused || (sides_[0].isClean && sides_[1].isClean)) << *this;
        }
    }

    friend std::ostream& operator<<(std::ostream& out, const Session& session)
    {
        out << "session " << session.number_ << ", ending " << static_cast<int>(session.ending_.how)
            << " by " << session.ending_.who;
        for (const auto& stream : session.streams_)
            out << "; of " << stream.bytes.size() << " sent " << stream.sent << ", received "
                << stream.received;
        return out << "; ended " << session.sides_[0].hasEnded << session.sides_[1].hasEnded;
    }

private:
    /// Limits the buffers at random. With windows far smaller than a loopback segment, the test
    /// would mostly wait for kernel timers.
    void limitBuffers(int descriptor)
    {
        const auto limit = [&](int buffer, std::size_t size) {
            const int value = static_cast<int>(size);
            if (dice_.oneIn(2))
                ::setsockopt(descriptor, SOL_SOCKET, buffer, &value, sizeof value);
        };
        limit(SO_SNDBUF, 2048UL << dice_.below(8));
        limit(SO_RCVBUF, 65536UL << dice_.below(3));
    }

    Side makeClient(std::uint16_t port)
    {
        Peer peer(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        limitBuffers(peer.descriptor());
        const auto address = ipv4Address("127.0.0.1", port);
        EXPECT_EQ(::connect(peer.descriptor(), address.data(), address.size()), 0);
        return Side(std::move(peer));
    }

    Side makeServer(const PeerListener& phone)
    {
        auto peer = phone.accept();
        limitBuffers(peer.descriptor());
        return Side(std::move(peer));
    }

    /// How many bytes the side may still send; one that resets stops at `resetAfter`.
    std::size_t mostToSend(std::size_t index) const
    {
        const bool isToReset = ending_.how == WayToEnd::How::Reset && ending_.who == index;
        return isToReset ? ending_.resetAfter - streams_.at(index).sent : kLargest;
    }

    void endIfDue()
    {
        auto& side = sides_.at(ending_.who);
        const auto& stream = streams_.at(ending_.who);
        if (hasBegunToEnd_ || side.hasEnded)
            return;
        switch (ending_.how) {
        case WayToEnd::How::AfterAll:
            hasBegunToEnd_ = streams_[0].isReceived() && streams_[1].isReceived();
            break;
        case WayToEnd::How::HalfClose:
            hasBegunToEnd_ = stream.isSent();
            break;
        case WayToEnd::How::Reset:
            hasBegunToEnd_ = stream.sent == ending_.resetAfter;
            break;
        }
        if (!hasBegunToEnd_)
            return;
        if (ending_.how == WayToEnd::How::Reset)
            side.reset();
        else
            side.shutDownSending();
    }

    const std::size_t number_;
    Dice dice_;
    std::array<Side, 2> sides_;     ///< the client and the phone
    std::array<Stream, 2> streams_; ///< what each of them sends
    WayToEnd ending_;
    bool hasBegunToEnd_ = false;
    Clock::time_point lastProgress_ = Clock::now();
};

/// A listener that relays its connections to one phone, as the program does.
class Relay final {
public:
    Relay(Harness& harness, std::shared_ptr<DispatchQueue> queue)
        : network_(*harness.network), queue_(std::move(queue))
    {
        std::error_code error;
        listener_ = network_.makeListener({.allowLocalEndpointReuse = true}, kAnyPort, error);
        EXPECT_FALSE(error);
        const auto index = harness.dnsSd.registrations().size();
        listener_->setService(
            {.name = harness.serviceName + ' ' + std::to_string(index), .type = "_smb._tcp"});
        listener_->setNewConnectionHandler(
            [this](std::shared_ptr<Connection> connection) { accept(std::move(connection)); });
        std::promise<void> started;
        queue_->async([&] {
            listener_->start(queue_);
            started.set_value();
        });
        started.get_future().wait();
        port_ = harness.dnsSd.registrations().at(index).request.port;
    }

    std::uint16_t port() const { return port_; }
    const PeerListener& phone() const { return phone_; }

private:
    RecordingLog log_; ///< off
    void accept(std::shared_ptr<Connection> connection)
    {
        auto session = std::make_shared<RelaySession>(
            std::move(connection),
            network_.makeConnection(HostEndpoint{.host = "127.0.0.1", .port = phone_.port()}, {}),
            log_, "stress");
        const auto number = nextNumber_++;
        session->onEnd = [this, number] {
            queue_->async([this, number] { sessions_.erase(number); });
        };
        sessions_.emplace(number, session);
        session->start(queue_);
    }

    PeerListener phone_;
    TcpNetwork& network_;
    const std::shared_ptr<DispatchQueue> queue_;
    std::shared_ptr<Listener> listener_;
    std::uint16_t port_ = 0;
    std::uint64_t nextNumber_ = 0;
    std::map<std::uint64_t, std::shared_ptr<RelaySession>> sessions_;
};

/// Sends and receives once on each socket that is ready.
void moveAll(std::vector<std::unique_ptr<Session>>& sessions)
{
    std::vector<pollfd> polled;
    const auto now = Clock::now();
    for (const auto& session : sessions)
        std::ranges::copy(session->toPoll(now), std::back_inserter(polled));
    // A timeout of 1 ms, so that paused readers resume soon.
    ::poll(polled.data(), polled.size(), 1);
    for (std::size_t index = 0; index < sessions.size(); ++index)
        sessions[index]->take(std::span(polled).subspan(2 * index, 2));
}

} // namespace

TEST(RelayStress, losesNoByteAndNoEndWhateverTheSidesDo)
{
    // As in the program: splicing a pipe into a reset connection raises SIGPIPE.
    const auto former = std::signal(SIGPIPE, SIG_IGN);
    Harness harness;
    std::vector<std::unique_ptr<Relay>> relays;
    for (std::size_t index = 0; index < kRelays; ++index)
        relays.push_back(std::make_unique<Relay>(harness, harness.makeQueue()));
    std::vector<std::unique_ptr<Session>> sessions;
    std::size_t begun = 0;
    while ((begun < kSessions || !sessions.empty()) && !testing::Test::HasFailure()) {
        while (begun < kSessions && sessions.size() < kAtOnce) {
            const auto& relay = *relays[begun % kRelays];
            sessions.push_back(std::make_unique<Session>(begun++, relay.port(), relay.phone()));
        }
        moveAll(sessions);
        std::erase_if(sessions, [](const auto& session) {
            if (!session->isOver() && !session->isStanding())
                return false;
            session->check();
            return true;
        });
    }
    sessions.clear();
    // All connections are closed, too.
    EXPECT_TRUE(harness.network->flush(kStandstill));
    harness.pool.shutdown();
    std::signal(SIGPIPE, former);
}

} // namespace quillbox
