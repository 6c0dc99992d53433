#include "platform/tcp/socket_ledger.h"
#include "tests/fakes/descriptor_shortage.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/tcp/tcp_harness.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

/// Client sockets that are opened in advance, to connect when no more descriptors can be opened.
class Crowd final {
public:
    explicit Crowd(std::size_t count)
    {
        for (std::size_t index = 0; index < count; ++index)
            peers_.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    }

    void connectTo(std::uint16_t port)
    {
        const auto address = ipv4Address("127.0.0.1", port);
        for (const auto& peer : peers_)
            EXPECT_EQ(::connect(peer.descriptor(), address.data(), address.size()), 0);
    }

private:
    std::vector<Peer> peers_;
};

} // namespace

TEST(TcpListener, pausesWhenItIsOutOfDescriptorsAndGoesOnWhenAConnectionCloses)
{
    Harness harness;
    harness.listen();
    Crowd crowd(8);
    testing::internal::CaptureStderr();
    const DescriptorShortage shortage(3);
    crowd.connectTo(harness.listeningPort());
    ASSERT_TRUE(harness.waitForAccepted(3));

    const auto before = processorTime();
    EXPECT_FALSE(harness.waitForAccepted(4, 1s));
    EXPECT_LT(processorTime() - before, 50ms) << "5 % of the time at the most";

    // When one connection closes, one more is accepted.
    harness.nextAccepted().reset();
    EXPECT_TRUE(harness.waitForAccepted(4));
    EXPECT_FALSE(harness.waitForAccepted(5, kWatch));

    shortage.lift();
    EXPECT_TRUE(harness.waitForAccepted(8));
    const auto said = testing::internal::GetCapturedStderr();
    EXPECT_LE(std::count(said.begin(), said.end(), '\n'), 2) << said;
    EXPECT_TRUE(said.starts_with("quillbox-helper: ")) << said;
}

TEST(TcpListener, goesOnAtOnceAtEveryCloseHoweverOftenItHasPaused)
{
    constexpr std::size_t kCloses = 9;
    Harness harness;
    harness.listen();
    Crowd crowd(kCloses + 2);
    testing::internal::CaptureStderr();
    const DescriptorShortage shortage(1);
    crowd.connectTo(harness.listeningPort());
    std::size_t quick = 0;
    for (std::size_t count = 1; count <= kCloses; ++count) {
        ASSERT_TRUE(harness.waitForAccepted(count));
        const auto before = std::chrono::steady_clock::now();
        harness.nextAccepted().reset();
        ASSERT_TRUE(harness.waitForAccepted(count + 1));
        // The timer alone would end each pause after 200 ms.
        quick += std::chrono::steady_clock::now() - before < 100ms ? 1 : 0;
    }
    // A busy machine may delay some of them.
    EXPECT_GT(quick, kCloses / 2);
    shortage.lift();
    EXPECT_TRUE(harness.waitForAccepted(kCloses + 2));
    testing::internal::GetCapturedStderr();
}

TEST(TcpListener, comesBackByItselfWhenDescriptorsAreFreeAgain)
{
    Harness harness;
    harness.listen();
    Crowd crowd(2);
    testing::internal::CaptureStderr();
    const DescriptorShortage shortage(0);
    crowd.connectTo(harness.listeningPort());
    EXPECT_FALSE(harness.waitForAccepted(1, kWatch));
    shortage.lift();
    EXPECT_TRUE(harness.waitForAccepted(2, 2s));
    EXPECT_FALSE(testing::internal::GetCapturedStderr().empty());
}

TEST(TcpListener, refusesAHostThatHasTooManyConnections)
{
    std::unique_ptr<Harness> harness;
    std::size_t most = 0;
    {
        const DescriptorShortage shortage(100);
        most = SocketLedger::defaultMost();
        harness = std::make_unique<Harness>();
    }
    harness->listen();
    testing::internal::CaptureStderr();
    // This computer may have an eighth more than others, and half of that if it is alone.
    const std::size_t admitted = (most + most / 8 + 1) / 2;
    std::vector<Peer> peers;
    for (std::size_t count = 0; count < admitted + 2; ++count)
        peers.push_back(connectPeer(harness->listeningPort(), "127.0.0.2"));
    bool isClean = true;
    EXPECT_TRUE(peers.back().receiveAll(isClean).empty());
    EXPECT_FALSE(isClean) << "reset";
    EXPECT_EQ(harness->acceptedCount(), admitted);

    harness->nextAccepted().reset();
    ASSERT_TRUE(peers.front().receiveAll(isClean).empty());
    peers.push_back(connectPeer(harness->listeningPort(), "127.0.0.2"));
    EXPECT_TRUE(harness->waitForAccepted(admitted + 1));
    const auto said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    EXPECT_TRUE(said.starts_with("quillbox-helper: refusing connections")) << said;

    Crowd crowd(1);
    testing::internal::CaptureStderr();
    const DescriptorShortage shortage(0);
    crowd.connectTo(harness->listeningPort());
    EXPECT_FALSE(harness->waitForAccepted(admitted + 2, kWatch));
    EXPECT_TRUE(testing::internal::GetCapturedStderr().starts_with(
        "quillbox-helper: cannot accept connections"))
        << "another shortage is reported as well";
}

TEST(TcpConnection, failsWhenThereIsNoDescriptorForIt)
{
    Harness harness;
    harness.listen();
    const PeerListener phone;
    Subject subject(harness.network->makeConnection(
                        HostEndpoint{.host = "127.0.0.1", .port = phone.port()}, {}),
                    harness.makeQueue());
    const DescriptorShortage shortage(0);
    subject.start();
    ASSERT_TRUE(subject.log->waitFor(Connection::State::Failed));
    EXPECT_EQ(subject.log->errorOf(Connection::State::Failed), std::errc::too_many_files_open);
}

} // namespace quillbox
