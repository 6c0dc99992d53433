#include "platform/tcp/socket_calls.h"
#include "platform/tcp/tcp_connection.h"
#include "tests/fakes/fake_network.h"
#include "tests/platform/tcp/refused_calls.h"
#include "tests/platform/tcp/tcp_backstage.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <future>
#include <memory>
#include <span>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>

namespace quillbox {

using namespace std::chrono_literals;

/// Hands over a socket that is connected.
class Handover final : public Dialler {
public:
    explicit Handover(std::unique_ptr<FdWatcher> socket) : socket_(std::move(socket)) {}

    void start(std::shared_ptr<LoopQueue> queue, Handlers handlers) override
    {
        queue->post([this, connected = std::move(handlers.connected)]() mutable {
            connected(std::move(socket_));
        });
    }
    void stop() override {}

private:
    std::unique_ptr<FdWatcher> socket_;
};

class TcpConnectionTest : public Backstage {
protected:
    TcpConnectionTest() : connection(makeConnection(listener.accept())) {}

    ~TcpConnectionTest() override
    {
        if (connection)
            onQueue([this] { connection->cancel(); });
        pool.shutdown();
    }

    /// A connection in the Ready state; its socket becomes `observed`.
    std::shared_ptr<Connection> makeConnection(Peer accepted)
    {
        observed = ::dup(accepted.descriptor());
        ::fcntl(observed, F_SETFL, ::fcntl(observed, F_GETFL) | O_NONBLOCK);
        // Room for what tests send before any of it is read.
        constexpr int kRoom = 200 * 1024;
        ::setsockopt(observed, SOL_SOCKET, SO_RCVBUF, &kRoom, sizeof kRoom);
        accepted.close();
        std::shared_ptr<Connection> made;
        std::promise<void> ready;
        onQueue([&] {
            std::error_code unwatched;
            auto socket = FdWatcher::adopt(queue, observed, FdWatcher::For::Reading, unwatched,
                                           context->sockets->open());
            EXPECT_FALSE(unwatched) << unwatched.message();
            made = TcpConnection::make(context, std::make_shared<Handover>(std::move(socket)),
                                       std::weak_ptr<TcpConnection>());
            made->setStateUpdateHandler(
                [this, &ready](Connection::State state, std::error_code error) {
                    if (state == Connection::State::Ready)
                        ready.set_value();
                    if (state != Connection::State::Failed)
                        return;
                    ++failures;
                    firstFailure.set_value(error);
                });
            made->start(queue);
        });
        ready.get_future().wait();
        return made;
    }

    std::future<std::error_code> send(const std::string& bytes)
    {
        auto sent = std::make_shared<std::promise<std::error_code>>();
        onQueue([&] {
            connection->send(makeContent(bytes),
                             [sent](std::error_code error) { sent->set_value(error); });
        });
        return sent->get_future();
    }

    std::future<std::string> receive(std::size_t minimum = 1,
                                     std::size_t maximum = kMaximumContentSize)
    {
        return receive(connection, minimum, maximum);
    }

    std::future<std::string> receive(const std::shared_ptr<Connection>& from,
                                     std::size_t minimum = 1,
                                     std::size_t maximum = kMaximumContentSize)
    {
        auto received = std::make_shared<std::promise<std::string>>();
        onQueue([&] {
            from->receive(minimum, maximum,
                          [received](Content content, bool, std::error_code error) {
                              EXPECT_FALSE(error) << error.message();
                              received->set_value(textOf(content));
                          });
        });
        return received->get_future();
    }

    PeerListener listener;
    Peer peer = connectPeer(listener.port());
    int observed = -1; ///< the socket of the connection made last
    int failures = 0;  ///< used on the queue
    std::promise<std::error_code> firstFailure;
    std::shared_ptr<Connection> connection;
};

TEST_F(TcpConnectionTest, borrowsNoPipesAnyMoreOnceASpliceWasRefused)
{
    bool isRefused = false;
    onQueue([&isRefused] { isRefused = refuseCalls(SYS_splice, EINVAL); });
    if (!isRefused)
        GTEST_SKIP() << "no permission to filter system calls";
    EXPECT_TRUE(context->pipes->borrow());
    const auto bytes = pattern(8 * kMaximumContentSize);
    std::thread sender([this, &bytes] { EXPECT_TRUE(peer.send(bytes)); });
    std::string all;
    while (all.size() < bytes.size()) {
        const auto part = take(receive());
        if (part.empty())
            break;
        all += part;
    }
    peer.shutDownSending();
    sender.join();
    EXPECT_TRUE(all == bytes) << "the bytes are copied instead";
    EXPECT_FALSE(context->pipes->borrow());
}

TEST_F(TcpConnectionTest, occupiesNoBufferWhileAReceiveWaits)
{
    // A read that got all it asked for does not know that there is no more, so the next receive
    // reads once before it waits.
    ASSERT_TRUE(peer.send("abc"));
    EXPECT_EQ(take(receive(3, 3)), "abc");
    auto received = receive();
    settle();
    EXPECT_EQ(context->chunks->lent(), 0U);
    ASSERT_TRUE(peer.send("def"));
    EXPECT_EQ(take(std::move(received)), "def");
}

TEST_F(TcpConnectionTest, usesOneBufferInTurnForConnectionsThatHaveMoreToRead)
{
    // Each has been read once, and has more.
    const auto bytes = pattern(ChunkPool::kMiddleSize + 1);
    std::vector<Peer> peers;
    std::vector<std::shared_ptr<Connection>> connections;
    for (int count = 0; count < 4; ++count) {
        peers.push_back(connectPeer(listener.port()));
        connections.push_back(makeConnection(listener.accept()));
        ASSERT_TRUE(peers.back().send(bytes));
        ASSERT_TRUE(peers.back().waitUntilAcknowledged());
        EXPECT_EQ(take(receive(connections.back())).size(), ChunkPool::kMiddleSize);
    }
    std::vector<std::size_t> lent;
    std::promise<bool> done;
    onQueue([&] {
        for (const auto& each : connections)
            each->receive(1, kMaximumContentSize, [&](Content, bool, std::error_code) {
                lent.push_back(context->chunks->lent());
                if (lent.size() == connections.size())
                    done.set_value(true);
            });
    });
    take(done.get_future());
    EXPECT_EQ(lent, std::vector<std::size_t>(connections.size(), ChunkPool::kMiddleSize));
    onQueue([&] {
        for (const auto& each : connections)
            each->cancel();
    });
}

TEST_F(TcpConnectionTest, keepsTheBufferOfAReceiveThatHasLessThanItsMinimum)
{
    auto received = receive(6);
    ASSERT_TRUE(peer.send("abc"));
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    ASSERT_TRUE(peer.send("def"));
    EXPECT_EQ(take(std::move(received)), "abcdef");
}

TEST_F(TcpConnectionTest, receivesNoMoreThanTheLargestContent)
{
    const auto bytes = pattern(2 * kMaximumContentSize);
    std::thread sender([this, &bytes] { EXPECT_TRUE(peer.send(bytes)); });
    const auto first = take(receive(bytes.size(), bytes.size()));
    EXPECT_EQ(first.size(), kMaximumContentSize);
    EXPECT_TRUE(first + take(receive(kMaximumContentSize)) == bytes);
    sender.join();
}

TEST_F(TcpConnectionTest, receivesAllThatIsThereOnceAReceiveHasFilledItsBuffer)
{
    const auto bytes = pattern(ChunkPool::kMiddleSize + 48UL * 1024);
    ASSERT_TRUE(peer.send(bytes));
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    EXPECT_EQ(take(receive()).size(), ChunkPool::kMiddleSize);
    EXPECT_EQ(take(receive()).size(), 48UL * 1024);
}

TEST_F(TcpConnectionTest, readsOnlyTheBeginningAtFirstOnceBurstsAreLarge)
{
    constexpr std::size_t kMost = ChunkPool::kMiddleSize;
    constexpr std::size_t kBeginning = ChunkPool::kSmallSize;
    const auto readsOf = [this](std::size_t burst) {
        EXPECT_TRUE(peer.send(pattern(burst)));
        EXPECT_TRUE(peer.waitUntilAcknowledged());
        std::vector<std::size_t> reads;
        for (std::size_t sum = 0; sum < burst; sum += reads.back())
            reads.push_back(take(receive()).size());
        return reads;
    };
    using Reads = std::vector<std::size_t>;
    EXPECT_EQ(readsOf(kMost - 1), Reads{kMost - 1});
    EXPECT_EQ(readsOf(kMost + 1), (Reads{kMost, 1})) << "the one before was small";
    EXPECT_EQ(readsOf(kMost + 1), (Reads{kBeginning, kMost + 1 - kBeginning}));
    EXPECT_EQ(readsOf(kMost - 1), (Reads{kBeginning, kMost - 1 - kBeginning}));
    EXPECT_EQ(readsOf(kMost - 1), Reads{kMost - 1}) << "the one before was small";
}

TEST_F(TcpConnectionTest, noticesTheEndBehindAReceiveThatFilledItsBuffer)
{
    ASSERT_TRUE(peer.send(pattern(ChunkPool::kMiddleSize)));
    peer.shutDownSending();
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    settle(); // one event for both
    EXPECT_EQ(take(receive()).size(), ChunkPool::kMiddleSize);
    EXPECT_EQ(take(receive()), "");
}

TEST_F(TcpConnectionTest, usesAPipeFor64KiBAndMore)
{
    for (const std::size_t size : {64UL * 1024 - 1, 64UL * 1024}) {
        ASSERT_TRUE(peer.send(pattern(ChunkPool::kMiddleSize + size)));
        ASSERT_TRUE(peer.waitUntilAcknowledged());
        EXPECT_EQ(take(receive()).size(), ChunkPool::kMiddleSize);
        std::promise<std::size_t> inPipes;
        onQueue([&] {
            connection->receive(1, kMaximumContentSize,
                                [&](const Content& content, bool, std::error_code) {
                                    inPipes.set_value(context->pipes->lent());
                                    EXPECT_EQ(content.size(), size);
                                });
        });
        EXPECT_EQ(take(inPipes.get_future()), size < 64UL * 1024 ? 0U : 1U);
        // After a pipe, much more may be there; after a buffer that was not full, a new burst
        // begins.
        ASSERT_TRUE(peer.send(pattern(48UL * 1024)));
        ASSERT_TRUE(peer.waitUntilAcknowledged());
        EXPECT_EQ(take(receive()).size(), size < 64UL * 1024 ? ChunkPool::kSmallSize : 48UL * 1024);
        if (size < 64UL * 1024) {
            EXPECT_EQ(take(receive(32UL * 1024)).size(), 32UL * 1024);
        }
        auto waiting = receive();
        ASSERT_TRUE(peer.send("x"));
        EXPECT_EQ(take(std::move(waiting)), "x");
    }
}

TEST_F(TcpConnectionTest, waitsForItsMinimumThoughAPipeWouldHoldWhatIsThere)
{
    ASSERT_TRUE(peer.send(pattern(ChunkPool::kMiddleSize + 64UL * 1024)));
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    EXPECT_EQ(take(receive()).size(), ChunkPool::kMiddleSize);
    auto received = receive(100UL * 1024);
    settle();
    ASSERT_TRUE(peer.send(pattern(36UL * 1024)));
    EXPECT_EQ(take(std::move(received)).size(), 100UL * 1024);
}

TEST_F(TcpConnectionTest, takesASendFromTheCompletionOfOneThatWaited)
{
    // More than the buffers of both sockets hold.
    const std::string many(32 * kMaximumContentSize, 'x');
    auto first = std::make_shared<std::promise<std::error_code>>();
    auto second = std::make_shared<std::promise<std::error_code>>();
    onQueue([&] {
        connection->send(makeContent(many), [this, first, second](std::error_code error) {
            first->set_value(error);
            connection->send(makeContent("end"),
                             [second](std::error_code failure) { second->set_value(failure); });
        });
    });
    const auto all = peer.receiveExactly(many.size());
    EXPECT_EQ(all.size(), many.size());
    EXPECT_FALSE(take(first->get_future()));
    EXPECT_EQ(take(second->get_future()), std::error_code());
    EXPECT_EQ(peer.receiveExactly(3), "end");
}

TEST_F(TcpConnectionTest, endsWithTheErrorOfASplice)
{
    bool isRefused = false;
    onQueue([&isRefused] { isRefused = refuseCalls(SYS_splice, ECONNRESET); });
    if (!isRefused)
        GTEST_SKIP() << "no permission to filter system calls";
    ASSERT_TRUE(peer.send(pattern(ChunkPool::kMiddleSize + 64UL * 1024)));
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    EXPECT_EQ(take(receive()).size(), ChunkPool::kMiddleSize);
    EXPECT_EQ(take(receive()).size(), 64UL * 1024) << "what came before can still be read";
    EXPECT_EQ(take(firstFailure.get_future()), std::errc::connection_reset);
}

TEST_F(TcpConnectionTest, endsInOrderIfItHasReceivedThoughNothingMoreCame)
{
    ASSERT_TRUE(peer.send("a"));
    EXPECT_EQ(take(receive()), "a");
    onQueue([this] {
        connection->receive(1, 1, [](const Content&, bool, std::error_code error) {
            EXPECT_EQ(error, std::errc::operation_canceled);
        });
        connection->cancel();
    });
    bool isClean = false;
    EXPECT_EQ(peer.receiveAll(isClean), "");
    EXPECT_TRUE(isClean);
}

TEST_F(TcpConnectionTest, endsInOrderIfItHasSentThoughItCannotSendMore)
{
    const std::string many(32 * kMaximumContentSize, 'x');
    const auto pending = send(many);
    EXPECT_EQ(pending.wait_for(0ms), std::future_status::timeout);
    onQueue([this] { connection->cancel(); });
    bool isClean = false;
    EXPECT_EQ(peer.receiveAll(isClean).size(), many.size());
    EXPECT_TRUE(isClean);
}

TEST_F(TcpConnectionTest, leavesTimeToOthersAfterALargeSend)
{
    const int room = 4 * static_cast<int>(kMaximumContentSize);
    if (::setsockopt(observed, SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room) != 0)
        GTEST_SKIP() << "no permission for a large send buffer";
    std::unique_ptr<FdWatcher> watch;
    const auto watching = pool.makeQueue("watching", QualityOfService::UserInitiated);
    const auto other = pool.makeQueue("other", QualityOfService::UserInitiated);
    std::vector<std::string> events;
    std::promise<void> done;
    onQueue([&] {
        std::error_code error;
        watch = FdWatcher::adopt(watching, ::eventfd(0, 0), FdWatcher::For::Reading, error);
        ASSERT_FALSE(error) << error.message();
        watch->waitReadable([&](const std::error_code&) { events.emplace_back("event"); });
    });
    queue->async([&] {
        EXPECT_EQ(::eventfd_write(watch->descriptor(), 1), 0);
        connection->send(makeContent(pattern(kMaximumContentSize)), [](std::error_code) {});
        other->async([&] {
            events.emplace_back("closure");
            done.set_value();
        });
    });
    done.get_future().wait();
    pool.shutdown();
    EXPECT_EQ(events, (std::vector<std::string>{"event", "closure"}));
    watch->cancelWaits();
    connection.reset();
}

TEST_F(TcpConnectionTest, closesAtOnceBehindThePeersEnd)
{
    const std::string piece(64UL * 1024, 'x');
    auto pending = send(piece);
    while (pending.wait_for(100ms) == std::future_status::ready)
        pending = send(piece);
    // Room for the last piece only, so the rest is not acknowledged.
    while (pending.wait_for(20ms) != std::future_status::ready)
        peer.receive(piece.size());
    peer.shutDownSending();
    EXPECT_EQ(take(receive()), "");
    onQueue([this] {
        connection->cancel();
        EXPECT_EQ(context->sockets->openCount(), 0U) << "no more input can cause a reset";
    });
}

TEST_F(TcpConnectionTest, tellsAFailureWhoseErrorIsNotKnown)
{
    onQueue([this] {
        peer.reset();
        pollfd reset{.fd = observed, .events = 0, .revents = 0};
        EXPECT_EQ(::poll(&reset, 1, -1), 1);
        EXPECT_EQ(takeSocketError(observed), std::errc::connection_reset);
    });
    EXPECT_EQ(take(firstFailure.get_future()), std::errc::connection_reset);
}

TEST_F(TcpConnectionTest, tellsNoFailureAfterItWasClosed)
{
    onQueue([this] {
        peer.reset();
        pollfd reset{.fd = observed, .events = 0, .revents = 0};
        EXPECT_EQ(::poll(&reset, 1, -1), 1);
        // Finds the reset, and queues the report behind this.
        connection->send(makeContent("x"), [](std::error_code error) { EXPECT_TRUE(error); });
        connection->cancel();
    });
    settle();
    EXPECT_EQ(failures, 0);
}

TEST_F(TcpConnectionTest, refusesAContentWhoseBytesItCannotReach)
{
    class Elsewhere final : public ContentStorage {
        std::size_t size() const override { return 4; }
        std::span<const std::byte> bytes() const override { return {}; }
    };
    std::promise<std::error_code> sent;
    onQueue([&] {
        connection->send(Content(std::make_unique<Elsewhere>()),
                         [&sent](std::error_code error) { sent.set_value(error); });
    });
    EXPECT_EQ(take(sent.get_future()), std::errc::invalid_argument);
}

} // namespace quillbox
