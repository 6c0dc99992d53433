#include "tests/platform/tcp/tcp_harness.h"

#include <algorithm>
#include <thread>

#include <gtest/gtest.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

/// Echoes received data chunk by chunk, until the end of the stream.
void echo(const std::shared_ptr<Connection>& connection)
{
    connection->receive(1, kMaximumContentSize,
                        [connection](Content content, bool isComplete, std::error_code error) {
                            if (error || isComplete) {
                                connection->cancel();
                                return;
                            }
                            connection->send(std::move(content),
                                             [connection](std::error_code failure) {
                                                 if (!failure)
                                                     echo(connection);
                                             });
                        });
}

} // namespace

TEST(TcpConnection, carriesBytesBothWaysInOrder)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    subject.queue()->async([connection = subject.connection()] { echo(connection); });
    const auto bytes = pattern(16UL * 1024 * 1024);
    std::thread sender([&bytes, &remote = peer] { EXPECT_TRUE(remote.send(bytes)); });
    const auto back = peer.receiveExactly(bytes.size());
    sender.join();
    EXPECT_TRUE(back == bytes);
}

TEST(TcpConnection, receivesAtMostWhatWasAskedFor)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    ASSERT_TRUE(peer.send("abcdef"));
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    EXPECT_EQ(take(subject.receive(1, 4)).bytes, "abcd");
    EXPECT_EQ(take(subject.receive(1, 4)).bytes, "ef");
}

TEST(TcpConnection, receivesAMebibyteAtMost)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    const auto bytes = pattern(3 * kMaximumContentSize);
    std::thread sender([&bytes, &remote = peer] { EXPECT_TRUE(remote.send(bytes)); });
    std::string all;
    while (all.size() < bytes.size()) {
        const auto received = take(subject.receive(1, 64 * kMaximumContentSize));
        EXPECT_LE(received.bytes.size(), kMaximumContentSize);
        ASSERT_FALSE(received.bytes.empty());
        all += received.bytes;
    }
    sender.join();
    EXPECT_TRUE(all == bytes);
}

TEST(TcpConnection, waitsForTheMinimum)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    auto future = subject.receive(8, 100);
    ASSERT_TRUE(peer.send("abc"));
    EXPECT_EQ(future.wait_for(kWatch), std::future_status::timeout);
    const auto before = processorTime();
    EXPECT_EQ(future.wait_for(kWatch), std::future_status::timeout);
    EXPECT_LT(processorTime() - before, kWatch / 4) << "busy-waits";
    ASSERT_TRUE(peer.send("defgh"));
    EXPECT_EQ(take(std::move(future)).bytes, "abcdefgh");
}

TEST(TcpConnection, yieldsLessThanTheMinimumAtTheEndOfTheStream)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    auto future = subject.receive(8, 100);
    ASSERT_TRUE(peer.send("abc"));
    peer.shutDownSending();
    const auto received = take(std::move(future));
    EXPECT_EQ(received.bytes, "abc");
    EXPECT_TRUE(received.isComplete);
    EXPECT_FALSE(received.error);
}

TEST(TcpConnection, waitsForTheGreatestMinimum)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    const auto bytes = pattern(kMaximumContentSize);
    auto future = subject.receive(kMaximumContentSize, kMaximumContentSize);
    std::thread sender([&bytes, &remote = peer] { EXPECT_TRUE(remote.send(bytes)); });
    EXPECT_TRUE(take(std::move(future)).bytes == bytes);
    sender.join();
}

TEST(TcpConnection, tellsTheEndOfTheStreamAgainAndAgain)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    peer.shutDownSending();
    for (int count = 0; count < 2; ++count) {
        const auto received = take(subject.receive());
        EXPECT_TRUE(received.bytes.empty());
        EXPECT_TRUE(received.isComplete);
        EXPECT_FALSE(received.error);
    }
}

TEST(TcpConnection, sendsAfterThePeerHasEndedItsSide)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    peer.shutDownSending();
    EXPECT_TRUE(take(subject.receive()).isComplete);
    EXPECT_FALSE(take(subject.send("late answer")));
    EXPECT_EQ(peer.receiveExactly(11), "late answer");
}

TEST(TcpConnection, stopsTakingBytesWhileThePeerDoesNotRead)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    std::future<std::error_code> pending;
    const auto sent = fillBuffers(subject, pending);
    const auto before = processorTime();
    EXPECT_EQ(pending.wait_for(kWatch), std::future_status::timeout);
    EXPECT_LT(processorTime() - before, kWatch / 4);
    EXPECT_TRUE(peer.receiveExactly(sent.size()) == sent);
    EXPECT_FALSE(take(std::move(pending)));
}

TEST(TcpConnection, stopsReadingWhileNobodyReceives)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    const auto chunk = pattern(kMaximumContentSize);
    const timeval limit{.tv_sec = 0, .tv_usec = 300000};
    ::setsockopt(peer.descriptor(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    int sends = 0;
    while (peer.send(chunk))
        ASSERT_LT(++sends, 200) << "200 MiB are not in the system's buffers";
}

TEST(TcpConnection, answersAByteAtOnce)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    subject.queue()->async([connection = subject.connection()] { echo(connection); });
    constexpr std::size_t kRounds = 2000;
    std::vector<std::chrono::nanoseconds> times;
    for (std::size_t round = 0; round < kRounds; ++round) {
        const auto before = std::chrono::steady_clock::now();
        ASSERT_TRUE(peer.send("x"));
        ASSERT_EQ(peer.receiveExactly(1), "x");
        times.push_back(std::chrono::steady_clock::now() - before);
    }
    std::sort(times.begin(), times.end());
    // Segments held back by Nagle's algorithm would arrive 40 ms later.
    EXPECT_LT(times[kRounds * 99 / 100], 20ms);
}

TEST(TcpConnection, keepsUrgentBytesInTheStream)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    ASSERT_TRUE(peer.send("ab"));
    ASSERT_EQ(::send(peer.descriptor(), "!", 1, MSG_OOB), 1);
    ASSERT_TRUE(peer.send("cd"));
    const auto before = processorTime();
    std::string all;
    while (all.size() < 5)
        all += take(subject.receive()).bytes;
    EXPECT_EQ(all, "ab!cd");
    EXPECT_LT(processorTime() - before, 500ms);
    EXPECT_EQ(subject.log->count(Connection::State::Failed), 0U);
}

TEST(TcpConnection, keepsUrgentBytesInAStreamThatFlows)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    const auto bytes = pattern(2 * kMaximumContentSize);
    std::thread sender([&bytes, &remote = peer] {
        for (int round = 0; round < 4; ++round) {
            EXPECT_TRUE(remote.send(bytes));
            EXPECT_EQ(::send(remote.descriptor(), "!", 1, MSG_OOB), 1);
        }
        EXPECT_TRUE(remote.send(bytes));
        remote.shutDownSending();
    });
    std::string wanted = bytes;
    for (int round = 0; round < 4; ++round)
        wanted += '!' + bytes;
    std::string all;
    for (bool isComplete = false; !isComplete;) {
        // Lets data accumulate before and after the urgent byte.
        std::this_thread::sleep_for(1ms);
        auto received = take(subject.receive());
        all += received.bytes;
        isComplete = received.isComplete || received.error;
    }
    sender.join();
    EXPECT_EQ(all.size(), wanted.size());
    EXPECT_TRUE(all == wanted);
}

TEST(TcpConnection, refusesASecondReceiveAndASecondSend)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    auto first = subject.receive();
    EXPECT_EQ(take(subject.receive()).error, std::errc::operation_in_progress);
    ASSERT_TRUE(peer.send("x"));
    EXPECT_EQ(take(std::move(first)).bytes, "x");
    std::future<std::error_code> pending;
    const auto sent = fillBuffers(subject, pending);
    EXPECT_EQ(take(subject.send("refused")), std::errc::operation_in_progress);
    EXPECT_TRUE(peer.receiveExactly(sent.size()) == sent);
    EXPECT_FALSE(take(std::move(pending)));
    EXPECT_FALSE(take(subject.send("taken")));
    EXPECT_EQ(peer.receiveExactly(5), "taken");
}

TEST(TcpConnection, carriesBytesBetweenTwoConnectionsOfItsOwn)
{
    // A connector does not dial listeners of its own network.
    Harness near;
    Harness far;
    far.listen();
    auto dialled = near.dial("127.0.0.1", far.listeningPort());
    Subject accepted(far.nextAccepted(), far.makeQueue());
    accepted.start();
    ASSERT_TRUE(dialled.log->waitFor(Connection::State::Ready));
    EXPECT_EQ(dialled.log->states(),
              (std::vector{Connection::State::Preparing, Connection::State::Ready}));
    EXPECT_FALSE(take(dialled.send("hello")));
    EXPECT_EQ(take(accepted.receive(5, 5)).bytes, "hello");
    EXPECT_FALSE(take(accepted.send("world")));
    EXPECT_EQ(take(dialled.receive(5, 5)).bytes, "world");
    const auto bytes = pattern(kMaximumContentSize);
    auto sending = dialled.send(bytes);
    EXPECT_TRUE(take(accepted.receive(bytes.size(), bytes.size())).bytes == bytes);
    EXPECT_FALSE(take(std::move(sending)));
    dialled.cancel();
    EXPECT_TRUE(take(accepted.receive()).isComplete);
}

} // namespace quillbox
