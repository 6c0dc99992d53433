#include "platform/tcp/lingering_close.h"
#include "platform/tcp/socket_calls.h"
#include "tests/fakes/fake_network.h"
#include "tests/platform/tcp/tcp_backstage.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using State = Connection::State;

/// Sends continuously from its own thread until a send fails or it is destroyed.
class Chatter final {
public:
    explicit Chatter(const Peer& peer)
        : thread_([this, &peer] {
              while (!isDone_ && peer.send("more input")) {
                  std::this_thread::yield();
              }
          })
    {
    }

    ~Chatter()
    {
        isDone_ = true;
        thread_.join();
    }

    Chatter(const Chatter&) = delete;
    Chatter& operator=(const Chatter&) = delete;

private:
    std::atomic<bool> isDone_ = false;
    std::thread thread_;
};

/// Reads up to 100 small pieces slowly, then the rest until the end of the stream.
std::string readSlowly(const Peer& peer, std::size_t count, bool& isClean)
{
    std::string all;
    for (int piece = 0; piece < 100 && all.size() < count; ++piece) {
        all += peer.receive(4096);
        std::this_thread::sleep_for(1ms);
    }
    return all + peer.receiveAll(isClean);
}

} // namespace

TEST(LingeringClose, deliversTheLastBytesToASlowReaderThatKeepsSending)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    const auto chunk = pattern(kMaximumContentSize);
    std::string sent;
    std::string read;
    // Sends 6 MiB, reading only what it takes for the sends to complete, so that the socket buffers
    // are full at the end. The connection never receives the peer's data.
    ASSERT_TRUE(peer.send("unread"));
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    for (int count = 0; count < 6; ++count) {
        auto sending = subject.send(chunk);
        sent += chunk;
        while (sending.wait_for(100ms) != std::future_status::ready)
            read += peer.receive(65536);
        ASSERT_FALSE(take(std::move(sending)));
    }
    const Chatter chatter(peer);
    subject.cancel();
    ASSERT_TRUE(subject.log->waitFor(State::Cancelled));
    bool isClean = false;
    read += readSlowly(peer, sent.size() - read.size(), isClean);
    EXPECT_EQ(read.size(), sent.size());
    EXPECT_TRUE(read == sent);
    EXPECT_TRUE(isClean) << "the end of the stream, not a reset";
}

TEST(LingeringClose, deliversASendThatWasCancelledInTheMiddle)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    std::future<std::error_code> pending;
    const auto sent = fillBuffers(subject, pending);
    subject.cancel();
    EXPECT_EQ(take(std::move(pending)), std::errc::operation_canceled);
    ASSERT_TRUE(subject.log->waitFor(State::Cancelled));
    bool isClean = false;
    EXPECT_TRUE(peer.receiveAll(isClean) == sent);
    EXPECT_TRUE(isClean);
}

TEST(LingeringClose, discardsInputThatThePeerInsistsOnSendingFirst)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    std::future<std::error_code> pending;
    const auto sent = fillBuffers(subject, pending);
    subject.cancel();
    // A peer that writes before it reads would block forever if nothing received its data.
    EXPECT_TRUE(peer.send(pattern(32UL * 1024 * 1024)));
    bool isClean = false;
    EXPECT_TRUE(peer.receiveAll(isClean) == sent);
}

TEST(LingeringClose, endsWhenThePeerSendsWithoutEnd)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    std::future<std::error_code> pending;
    fillBuffers(subject, pending);
    subject.cancel();
    const auto chunk = pattern(kMaximumContentSize);
    int sends = 0;
    while (peer.send(chunk))
        ASSERT_LT(++sends, 200) << "64 MiB are discarded at the most";
    EXPECT_TRUE(harness.network->flush(kPatience));
}

TEST(LingeringClose, closesAtOnceWhenEverythingHasArrived)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    EXPECT_FALSE(take(subject.send("x")));
    EXPECT_EQ(peer.receiveExactly(1), "x");
    subject.cancel();
    ASSERT_TRUE(subject.log->waitFor(State::Cancelled));
    EXPECT_TRUE(harness.network->flush(1s));
    bool isClean = false;
    EXPECT_TRUE(peer.receiveAll(isClean).empty());
    EXPECT_TRUE(isClean);
}

TEST(LingeringClose, givesUpWhenThePeerResets)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    std::future<std::error_code> pending;
    fillBuffers(subject, pending);
    subject.cancel();
    ASSERT_TRUE(subject.log->waitFor(State::Cancelled));
    EXPECT_FALSE(harness.network->flush(kWatch));
    peer.reset();
    EXPECT_TRUE(harness.network->flush(kPatience));
}

TEST(LingeringClose, givesUpWhenThePeerEndsItsSideAndResets)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    std::future<std::error_code> pending;
    fillBuffers(subject, pending);
    peer.shutDownSending();
    subject.cancel();
    ASSERT_TRUE(subject.log->waitFor(State::Cancelled));
    EXPECT_FALSE(harness.network->flush(kWatch));
    peer.reset();
    EXPECT_TRUE(harness.network->flush(kPatience));
}

TEST(LingeringClose, hardlyCostsAnythingWhileThePeerDoesNotRead)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    std::future<std::error_code> pending;
    fillBuffers(subject, pending);
    peer.shutDownSending();
    subject.cancel();
    ASSERT_TRUE(subject.log->waitFor(State::Cancelled));
    const auto before = processorTime();
    EXPECT_FALSE(harness.network->flush(500ms));
    EXPECT_LT(processorTime() - before, 100ms);
}

class LingeringCloseTest : public Backstage {
protected:
    std::unique_ptr<FdWatcher> adopt(int descriptor)
    {
        std::error_code error;
        auto socket = FdWatcher::adopt(queue, descriptor, FdWatcher::For::Reading, error,
                                       context->sockets->open());
        EXPECT_FALSE(error) << error.message();
        return socket;
    }

    void close(std::unique_ptr<FdWatcher> socket, PendingSend unsent = {},
               std::chrono::milliseconds patience = 30s)
    {
        closeGently(LoopQueue::from(queue), context->chunks, std::move(socket), std::move(unsent),
                    true, Ending::EndOfStream, patience);
    }
};

TEST_F(LingeringCloseTest, waitsForAPeerAsLongAsThatGoesOnReading)
{
    constexpr auto kShort = 600ms;
    const PeerListener listener;
    const auto peer = connectPeer(listener.port());
    auto accepted = listener.accept();
    const int descriptor = ::dup(accepted.descriptor());
    ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
    accepted.close();
    onQueue([&] {
        close(adopt(descriptor),
              PendingSend(makeContent(std::string(32 * kMaximumContentSize, 'x'))), kShort);
    });

    using Clock = std::chrono::steady_clock;
    auto lastRead = Clock::now();
    auto longestPause = Clock::duration::zero();
    const auto end = lastRead + 4 * kShort;
    while (lastRead < end) {
        const bool isClosed = context->sockets->waitUntilNoneIsOpen(kShort / 6);
        peer.receiveExactly(256UL * 1024);
        longestPause = std::max(longestPause, Clock::now() - std::exchange(lastRead, Clock::now()));
        // On a busy computer this thread may pause for so long that giving up is right.
        if (isClosed && longestPause > kShort / 2)
            GTEST_SKIP() << "this computer is too busy";
        ASSERT_FALSE(isClosed);
    }
    EXPECT_TRUE(context->sockets->waitUntilNoneIsOpen(kPatience)) << "it no longer reads";
}

TEST_F(LingeringCloseTest, endsTheStreamInOrderHoweverMuchInputIsUnread)
{
    // More than is discarded at once.
    constexpr std::size_t kUnread = 2 * kMaximumContentSize;
    std::error_code error;
    const Peer listener(openListeningSocket(kAnyPort, false, error));
    const int room = 4 * kUnread;
    if (::setsockopt(listener.descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room) != 0)
        GTEST_SKIP() << "no permission for a large receive buffer";
    const auto peer = connectPeer(localPort(listener.descriptor()));
    SocketAddress client;
    const int descriptor = acceptStreamSocket(listener.descriptor(), client, error);
    ASSERT_FALSE(error) << error.message();
    ASSERT_TRUE(peer.send(pattern(kUnread)));
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    onQueue([&] { close(adopt(descriptor)); });
    bool isClean = false;
    EXPECT_TRUE(peer.receiveAll(isClean).empty());
    EXPECT_TRUE(isClean);
    // The socket is closed by now, or soon.
    EXPECT_TRUE(context->sockets->waitUntilNoneIsOpen(kPatience));
    EXPECT_TRUE(peer.receiveAll(isClean).empty());
    EXPECT_TRUE(isClean) << "a reset";
}

TEST_F(LingeringCloseTest, closesAtOnceWhenThePoolIsShutDown)
{
    const PeerListener listener;
    const auto peer = connectPeer(listener.port());
    const auto accepted = listener.accept();
    ASSERT_TRUE(peer.send("unread"));
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    std::unique_ptr<FdWatcher> socket;
    onQueue([&] { socket = adopt(::dup(accepted.descriptor())); });
    pool.shutdown();
    close(std::move(socket));
    EXPECT_EQ(context->sockets->openCount(), 0U);
}

TEST(TcpNetwork, flushesWhatLingers)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    std::future<std::error_code> pending;
    const auto sent = fillBuffers(subject, pending);
    subject.cancel();
    ASSERT_TRUE(subject.log->waitFor(State::Cancelled));
    EXPECT_FALSE(harness.network->flush(50ms));
    std::thread reader([&sent, &remote = peer] {
        bool isClean = false;
        EXPECT_TRUE(remote.receiveAll(isClean) == sent);
        EXPECT_TRUE(isClean);
    });
    EXPECT_TRUE(harness.network->flush(kPatience));
    reader.join();
}

} // namespace quillbox
