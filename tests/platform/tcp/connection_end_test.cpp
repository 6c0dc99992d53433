#include "tests/platform/tcp/tcp_harness.h"

#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using State = Connection::State;

} // namespace

TEST(TcpConnection, failsOnAResetThatNobodyReads)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    peer.reset();
    ASSERT_TRUE(subject.log->waitFor(State::Failed));
    EXPECT_EQ(subject.log->errorOf(State::Failed), std::errc::connection_reset);
}

TEST(TcpConnection, failsOnAResetBehindBytesThatNobodyReads)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    ASSERT_TRUE(peer.send("a request"));
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    const auto before = processorTime();
    EXPECT_FALSE(subject.log->waitFor(State::Failed, kWatch));
    EXPECT_LT(processorTime() - before, kWatch / 4) << "unread bytes keep it busy";
    peer.reset();
    EXPECT_TRUE(subject.log->waitFor(State::Failed));
}

TEST(TcpConnection, failsWhenItWasResetBeforeItsStart)
{
    Harness harness;
    harness.listen();
    auto peer = connectPeer(harness.listeningPort());
    Subject subject(harness.nextAccepted(), harness.makeQueue());
    peer.reset();
    subject.start();
    EXPECT_TRUE(subject.log->waitFor(State::Failed));
}

TEST(TcpConnection, isNotFailedByTheEndOfThePeersSide)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    peer.shutDownSending();
    EXPECT_FALSE(subject.log->waitFor(State::Failed, kWatch));
}

TEST(TcpConnection, endsAReceiveWithTheResetAndFailsOnce)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    auto future = subject.receive();
    subject.settle();
    peer.reset();
    const auto received = take(std::move(future));
    EXPECT_EQ(received.error, std::errc::connection_reset);
    EXPECT_FALSE(received.isComplete);
    ASSERT_TRUE(subject.log->waitFor(State::Failed));
    // The kernel reports an error once, and the end of the stream from then on.
    const auto again = take(subject.receive());
    EXPECT_EQ(again.error, std::errc::connection_reset);
    EXPECT_FALSE(again.isComplete);
    subject.settle();
    EXPECT_EQ(subject.log->count(State::Failed), 1U);
}

TEST(TcpConnection, endsASendWithTheReset)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    std::future<std::error_code> pending;
    fillBuffers(subject, pending);
    peer.reset();
    EXPECT_TRUE(take(std::move(pending)));
    EXPECT_TRUE(subject.log->waitFor(State::Failed));
}

TEST(TcpConnection, letsAReaderHaveWhatCameBeforeTheReset)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    // Fits into the receive buffer, although nothing reads it.
    const auto bytes = pattern(50'000);
    ASSERT_TRUE(peer.send(bytes));
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    auto all = take(subject.receive(1, 1000)).bytes;
    peer.reset();
    // Data sent meanwhile is discarded, as the network would do, and does not fail the connection.
    EXPECT_FALSE(subject.log->waitFor(State::Failed, kWatch));
    EXPECT_FALSE(take(subject.send("lost")));
    EXPECT_FALSE(take(subject.send("lost")));
    Received received;
    while (!received.error && !received.isComplete) {
        received = take(subject.receive(1, 20'000));
        all += received.bytes;
    }
    EXPECT_TRUE(all == bytes);
    EXPECT_TRUE(received.error);
    EXPECT_TRUE(subject.log->waitFor(State::Failed));
    EXPECT_TRUE(take(subject.send("no longer")));
}

TEST(TcpConnection, failsOnAResetOnceAReaderHasHadEverything)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    ASSERT_TRUE(peer.send("abc"));
    EXPECT_EQ(take(subject.receive(3, 3)).bytes, "abc");
    peer.reset();
    EXPECT_TRUE(subject.log->waitFor(State::Failed));
}

TEST(TcpConnection, endsWhatIsPendingAndThenReportsCancelled)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    std::future<std::error_code> sending;
    fillBuffers(subject, sending);
    auto receiving = subject.receive();
    subject.settle();
    subject.cancel();
    subject.cancel();
    EXPECT_EQ(take(std::move(receiving)).error, std::errc::operation_canceled);
    EXPECT_EQ(take(std::move(sending)), std::errc::operation_canceled);
    ASSERT_TRUE(subject.log->waitFor(State::Cancelled));
    peer.reset();
    subject.settle();
    EXPECT_EQ(subject.log->states(), (std::vector{State::Ready, State::Cancelled}));
    EXPECT_EQ(take(subject.receive()).error, std::errc::operation_canceled);
    EXPECT_EQ(take(subject.send("x")), std::errc::operation_canceled);
}

TEST(TcpConnection, reportsCancelledAfterTheCompletionsThatItEnds)
{
    Harness harness;
    std::vector<std::string> events;
    std::promise<void> done;
    const auto connection =
        harness.network->makeConnection(HostEndpoint{.host = "127.0.0.1", .port = 1}, {});
    connection->setStateUpdateHandler([&](State state, std::error_code) {
        if (state != State::Cancelled)
            return;
        events.emplace_back("cancelled");
        done.set_value();
    });
    const auto queue = harness.makeQueue();
    queue->async([&] {
        connection->start(queue);
        connection->receive(1, 1, [&](Content, bool, std::error_code error) {
            EXPECT_TRUE(error);
            events.emplace_back("received");
        });
        connection->cancel();
    });
    done.get_future().wait();
    EXPECT_EQ(events, (std::vector<std::string>{"received", "cancelled"}));
}

TEST(TcpConnection, isOnlyCancelledWhenThatCameBeforeItsStart)
{
    Harness harness;
    harness.listen();
    const auto peer = connectPeer(harness.listeningPort());
    const PeerListener phone;
    const HostEndpoint endpoint{.host = "127.0.0.1", .port = phone.port()};
    for (const auto& connection :
         {harness.nextAccepted(), harness.network->makeConnection(endpoint, {})}) {
        Subject subject(connection, harness.makeQueue());
        subject.cancel();
        subject.start();
        EXPECT_TRUE(subject.log->waitFor(State::Cancelled));
        EXPECT_EQ(take(subject.send("x")), std::errc::operation_canceled);
        subject.settle();
        EXPECT_EQ(subject.log->states(), std::vector{State::Cancelled});
    }
}

TEST(TcpConnection, reportsNothingAfterACompletionHasDroppedIt)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    auto owner = std::make_shared<std::shared_ptr<Connection>>(subject.connection());
    subject.drop();
    std::promise<void> dropped;
    subject.queue()->async([&dropped, owner] {
        (*owner)->receive(1, 1, [&dropped, owner](Content, bool, std::error_code error) {
            EXPECT_TRUE(error);
            owner->reset();
            dropped.set_value();
        });
    });
    subject.settle();
    // The failure is noted before the completion runs, and would be reported after it.
    peer.reset();
    dropped.get_future().wait();
    subject.settle();
    subject.settle();
    EXPECT_EQ(subject.log->states(), std::vector{State::Ready});
}

TEST(TcpConnection, endsThePeersStreamWhenItIsDropped)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    EXPECT_FALSE(take(subject.send("last words")));
    subject.drop();
    bool isClean = false;
    EXPECT_EQ(peer.receiveAll(isClean), "last words");
    EXPECT_TRUE(isClean);
    subject.settle();
    EXPECT_EQ(subject.log->states(), std::vector{State::Ready});
}

TEST(TcpConnection, endsWithAResetIfItIsToAPhoneAndHasCarriedNothing)
{
    Harness harness;
    const PeerListener phone;
    auto subject = harness.dial("127.0.0.1", phone.port());
    ASSERT_TRUE(subject.log->waitFor(State::Ready));
    const auto peer = phone.accept();
    subject.cancel();
    bool isClean = true;
    EXPECT_TRUE(peer.receiveAll(isClean).empty());
    EXPECT_FALSE(isClean);
}

TEST(TcpConnection, endsWithAResetIfItIsCancelledWhileItConnects)
{
    Harness harness;
    const PeerListener phone;
    const auto connection = harness.network->makeConnection(
        HostEndpoint{.host = "127.0.0.1", .port = phone.port()}, {});
    const auto queue = harness.makeQueue();
    // The attempt runs between the two, and its result is not known before the queue is idle.
    std::promise<void> cancelled;
    queue->async([&] {
        connection->start(queue);
        queue->async([&] {
            connection->cancel();
            cancelled.set_value();
        });
    });
    cancelled.get_future().wait();
    const auto peer = phone.accept();
    bool isClean = true;
    EXPECT_TRUE(peer.receiveAll(isClean).empty());
    EXPECT_FALSE(isClean);
}

TEST(TcpConnection, endsTheStreamOfAPhoneToWhichItHasSent)
{
    Harness harness;
    const PeerListener phone;
    auto subject = harness.dial("127.0.0.1", phone.port());
    ASSERT_TRUE(subject.log->waitFor(State::Ready));
    const auto peer = phone.accept();
    EXPECT_FALSE(take(subject.send("a request")));
    subject.cancel();
    bool isClean = false;
    EXPECT_EQ(peer.receiveAll(isClean), "a request");
    EXPECT_TRUE(isClean);
}

TEST(TcpConnection, endsTheStreamOfAPhoneThatHasSentSomething)
{
    Harness harness;
    const PeerListener phone;
    auto subject = harness.dial("127.0.0.1", phone.port());
    ASSERT_TRUE(subject.log->waitFor(State::Ready));
    const auto peer = phone.accept();
    ASSERT_TRUE(peer.send("hello"));
    EXPECT_EQ(take(subject.receive()).bytes, "hello");
    subject.cancel();
    bool isClean = false;
    EXPECT_TRUE(peer.receiveAll(isClean).empty());
    EXPECT_TRUE(isClean);
}

TEST(TcpConnection, endsTheStreamOfAClientToWhichItHasSentNothing)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    subject.cancel();
    bool isClean = false;
    EXPECT_TRUE(peer.receiveAll(isClean).empty());
    EXPECT_TRUE(isClean);
}

/// A connection to a phone on behalf of a client, and both peers.
class OnBehalf : public testing::Test {
protected:
    OnBehalf()
    {
        subject.start();
        client.start();
        EXPECT_TRUE(subject.log->waitFor(State::Ready));
        peer.emplace(phone.accept());
    }

    ~OnBehalf() override { harness.pool.shutdown(); }

    Harness harness;
    const std::shared_ptr<Listener> listener = harness.listen();
    const PeerListener phone;
    Peer clientPeer = connectPeer(harness.listeningPort());
    const std::shared_ptr<DispatchQueue> queue = harness.makeQueue();
    Subject client{harness.nextAccepted(), queue};
    Subject subject{
        harness.network->makeConnection(HostEndpoint{.host = "127.0.0.1", .port = phone.port()},
                                        {.client = client.connection()}),
        queue};
    std::optional<Peer> peer; ///< the phone
};

TEST_F(OnBehalf, aResetOfTheClientIsPassedOn)
{
    EXPECT_FALSE(take(subject.send("a request")));
    EXPECT_EQ(peer->receiveExactly(9), "a request");
    clientPeer.reset();
    ASSERT_TRUE(client.log->waitFor(State::Failed));
    client.cancel();
    subject.cancel();
    bool isClean = true;
    EXPECT_TRUE(peer->receiveAll(isClean).empty());
    EXPECT_FALSE(isClean);
}

TEST_F(OnBehalf, aResetOfTheClientIsPassedOnBehindAllThatWasSent)
{
    std::future<std::error_code> pending;
    const auto sent = fillBuffers(subject, pending);
    clientPeer.reset();
    ASSERT_TRUE(client.log->waitFor(State::Failed));
    client.cancel();
    subject.cancel();
    EXPECT_TRUE(peer->receiveExactly(sent.size()) == sent);
    bool isClean = true;
    EXPECT_TRUE(peer->receiveAll(isClean).empty());
    EXPECT_FALSE(isClean);
}

TEST_F(OnBehalf, anOrderlyEndOfTheClientIsPassedOn)
{
    EXPECT_FALSE(take(subject.send("a request")));
    EXPECT_EQ(peer->receiveExactly(9), "a request");
    clientPeer.close();
    EXPECT_TRUE(take(client.receive()).isComplete);
    client.cancel();
    subject.cancel();
    bool isClean = false;
    EXPECT_TRUE(peer->receiveAll(isClean).empty());
    EXPECT_TRUE(isClean);
}

TEST(TcpConnection, closesASocketThatIsCancelledBeforeItsStart)
{
    Harness harness;
    harness.listen();
    const auto peer = connectPeer(harness.listeningPort());
    Subject subject(harness.nextAccepted(), harness.makeQueue());
    EXPECT_EQ(harness.network->traffic().total.sessions, 1U);
    subject.cancel();
    bool isClean = false;
    EXPECT_TRUE(peer.receiveAll(isClean).empty());
    EXPECT_TRUE(isClean);
    subject.settle();
    EXPECT_EQ(harness.network->traffic().total.sessions, 0U);
}

TEST(TcpConnection, closesASocketThatNobodyStarts)
{
    Harness harness;
    harness.listen();
    const auto peer = connectPeer(harness.listeningPort());
    harness.nextAccepted().reset();
    bool isClean = false;
    EXPECT_TRUE(peer.receiveAll(isClean).empty());
}

TEST(TcpConnection, maySurviveItsNetworkAndThePool)
{
    std::shared_ptr<Connection> kept;
    std::shared_ptr<Connection> neverStarted;
    {
        Harness harness;
        auto [subject, peer] = harness.acceptedPair();
        auto pending = subject.receive();
        subject.settle();
        kept = subject.connection();
        connectPeer(harness.listeningPort());
        neverStarted = harness.nextAccepted();
    }
    kept.reset();
    neverStarted.reset();
}

TEST(TcpConnection, isFreedWithThePoolThoughItsPendingCompletionsHoldIt)
{
    std::weak_ptr<Connection> watched;
    bool hasRun = false;
    {
        PeerListener silent;
        Harness harness;
        Subject subject = harness.dial("127.0.0.1", silent.port());
        const auto peer = silent.accept();
        ASSERT_TRUE(subject.log->waitFor(State::Ready));
        watched = subject.connection();
        std::future<std::error_code> sending;
        fillBuffers(subject, sending);
        subject.queue()->async([&hasRun, connection = subject.connection()] {
            connection->receive(
                1, 1, [&hasRun, connection](Content, bool, std::error_code) { hasRun = true; });
        });
        subject.settle();
        harness.pool.shutdown();
    }
    EXPECT_FALSE(hasRun);
    EXPECT_TRUE(watched.expired());
}

TEST(TcpConnection, leavesNoDescriptorBehind)
{
    Harness harness;
    harness.listen();
    harness.acceptedPair();
    ASSERT_TRUE(harness.network->flush(kPatience));
    const auto before = openDescriptorCount();
    for (int count = 0; count < 50; ++count) {
        auto [subject, peer] = harness.acceptedPair();
        EXPECT_FALSE(take(subject.send("x")));
        if (count % 2 == 0)
            subject.cancel();
    }
    ASSERT_TRUE(harness.network->flush(kPatience));
    EXPECT_EQ(openDescriptorCount(), before);
}

} // namespace quillbox
