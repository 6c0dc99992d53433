#include "platform/tcp/socket_calls.h"
#include "platform/tcp/tcp_stream.h"
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

class TcpStreamTest : public Backstage {
protected:
    TcpStreamTest()
    {
        const int descriptor = ::dup(accepted.descriptor());
        ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
        accepted.close();
        observed = descriptor;
        onQueue([this] {
            std::error_code unwatched;
            auto socket = FdWatcher::adopt(queue, observed, FdWatcher::For::Reading, unwatched,
                                           context->sockets->open());
            EXPECT_FALSE(unwatched) << unwatched.message();
            stream = std::make_shared<TcpStream>(context, LoopQueue::from(queue), std::move(socket),
                                                 CountedSession());
            stream->open([this](std::error_code error) {
                ++failures;
                firstFailure.set_value(error);
            });
        });
    }

    ~TcpStreamTest() override
    {
        if (stream)
            onQueue([this] { stream->close(Ending::EndOfStream); });
        pool.shutdown();
    }

    std::future<std::error_code> send(const std::string& bytes)
    {
        auto sent = std::make_shared<std::promise<std::error_code>>();
        onQueue([&] {
            stream->send(makeContent(bytes),
                         [sent](std::error_code error) { sent->set_value(error); });
        });
        return sent->get_future();
    }

    std::future<std::string> receive(std::size_t minimum = 1,
                                     std::size_t maximum = kMaximumContentSize)
    {
        auto received = std::make_shared<std::promise<std::string>>();
        onQueue([this, received, minimum, maximum] {
            stream->receive(minimum, maximum,
                            [received](Content content, bool, std::error_code error) {
                                EXPECT_FALSE(error) << error.message();
                                received->set_value(textOf(content));
                            });
        });
        return received->get_future();
    }

    PeerListener listener;
    Peer peer = connectPeer(listener.port());
    Peer accepted = listener.accept();
    std::shared_ptr<TcpStream> stream;
    int observed = -1; ///< the stream's socket
    int failures = 0;  ///< used on the queue
    std::promise<std::error_code> firstFailure;
};

TEST_F(TcpStreamTest, borrowsNoPipesAnyMoreOnceASpliceWasRefused)
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

TEST_F(TcpStreamTest, occupiesNoBufferWhileAReceiveWaits)
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

TEST_F(TcpStreamTest, keepsTheBufferOfAReceiveThatHasLessThanItsMinimum)
{
    auto received = receive(6);
    ASSERT_TRUE(peer.send("abc"));
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    ASSERT_TRUE(peer.send("def"));
    EXPECT_EQ(take(std::move(received)), "abcdef");
}

TEST_F(TcpStreamTest, receivesNoMoreThanTheLargestContent)
{
    const auto bytes = pattern(2 * kMaximumContentSize);
    std::thread sender([this, &bytes] { EXPECT_TRUE(peer.send(bytes)); });
    const auto first = take(receive(bytes.size(), bytes.size()));
    EXPECT_EQ(first.size(), kMaximumContentSize);
    EXPECT_TRUE(first + take(receive(kMaximumContentSize)) == bytes);
    sender.join();
}

TEST_F(TcpStreamTest, receivesAllThatIsThereOnceAReceiveHasFilledItsBuffer)
{
    const auto bytes = pattern(ChunkPool::kSmallSize + 48UL * 1024);
    ASSERT_TRUE(peer.send(bytes));
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    EXPECT_EQ(take(receive()).size(), ChunkPool::kSmallSize);
    EXPECT_EQ(take(receive()).size(), 48UL * 1024);
}

TEST_F(TcpStreamTest, usesAPipeFor64KiBAndMore)
{
    for (const std::size_t size : {64UL * 1024 - 1, 64UL * 1024}) {
        ASSERT_TRUE(peer.send(pattern(ChunkPool::kSmallSize + size)));
        ASSERT_TRUE(peer.waitUntilAcknowledged());
        EXPECT_EQ(take(receive()).size(), ChunkPool::kSmallSize);
        std::promise<std::size_t> inPipes;
        onQueue([&] {
            stream->receive(1, kMaximumContentSize,
                            [&](const Content& content, bool, std::error_code) {
                                inPipes.set_value(context->pipes->lent());
                                EXPECT_EQ(content.size(), size);
                            });
        });
        EXPECT_EQ(take(inPipes.get_future()), size < 64UL * 1024 ? 0U : 1U);
        // After a pipe, much more may be there; after a buffer that was not full, it is not.
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

TEST_F(TcpStreamTest, waitsForItsMinimumThoughAPipeWouldHoldWhatIsThere)
{
    ASSERT_TRUE(peer.send(pattern(ChunkPool::kSmallSize + 64UL * 1024)));
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    EXPECT_EQ(take(receive()).size(), ChunkPool::kSmallSize);
    auto received = receive(100UL * 1024);
    settle();
    ASSERT_TRUE(peer.send(pattern(36UL * 1024)));
    EXPECT_EQ(take(std::move(received)).size(), 100UL * 1024);
}

TEST_F(TcpStreamTest, takesASendFromTheCompletionOfOneThatWaited)
{
    // More than the buffers of both sockets hold.
    const std::string many(32 * kMaximumContentSize, 'x');
    auto first = std::make_shared<std::promise<std::error_code>>();
    auto second = std::make_shared<std::promise<std::error_code>>();
    onQueue([&] {
        stream->send(makeContent(many), [this, first, second](std::error_code error) {
            first->set_value(error);
            stream->send(makeContent("end"),
                         [second](std::error_code failure) { second->set_value(failure); });
        });
    });
    const auto all = peer.receiveExactly(many.size());
    EXPECT_EQ(all.size(), many.size());
    EXPECT_FALSE(take(first->get_future()));
    EXPECT_EQ(take(second->get_future()), std::error_code());
    EXPECT_EQ(peer.receiveExactly(3), "end");
}

TEST_F(TcpStreamTest, endsWithTheErrorOfASplice)
{
    bool isRefused = false;
    onQueue([&isRefused] { isRefused = refuseCalls(SYS_splice, ECONNRESET); });
    if (!isRefused)
        GTEST_SKIP() << "no permission to filter system calls";
    ASSERT_TRUE(peer.send(pattern(ChunkPool::kSmallSize + 64UL * 1024)));
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    EXPECT_EQ(take(receive()).size(), ChunkPool::kSmallSize);
    EXPECT_EQ(take(receive()).size(), 64UL * 1024) << "what came before can still be read";
    EXPECT_EQ(take(firstFailure.get_future()), std::errc::connection_reset);
}

TEST_F(TcpStreamTest, knowsThatItWasUsedThoughNothingMoreComes)
{
    ASSERT_TRUE(peer.send("a"));
    EXPECT_EQ(take(receive()), "a");
    peer.reset();
    onQueue([this] {
        stream->receive(1, 1, [](const Content&, bool, std::error_code error) {
            EXPECT_EQ(error, std::errc::connection_reset);
        });
    });
    EXPECT_EQ(take(firstFailure.get_future()), std::errc::connection_reset);
    onQueue([this] { EXPECT_TRUE(stream->wasUsed()); });
}

TEST_F(TcpStreamTest, knowsThatItWasUsedThoughItCannotSendMore)
{
    const auto pending = send(std::string(32 * kMaximumContentSize, 'x'));
    onQueue([this] { EXPECT_TRUE(stream->wasUsed()); });
    EXPECT_EQ(pending.wait_for(0ms), std::future_status::timeout);
}

TEST_F(TcpStreamTest, leavesTimeToOthersAfterALargeSend)
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
        stream->send(makeContent(pattern(kMaximumContentSize)), [](std::error_code) {});
        other->async([&] {
            events.emplace_back("closure");
            done.set_value();
        });
    });
    done.get_future().wait();
    pool.shutdown();
    EXPECT_EQ(events, (std::vector<std::string>{"event", "closure"}));
    watch->cancelWaits();
    stream.reset();
}

TEST_F(TcpStreamTest, closesAtOnceBehindThePeersEnd)
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
        stream->close(Ending::EndOfStream);
        EXPECT_EQ(context->sockets->openCount(), 0U) << "no more input can cause a reset";
    });
}

TEST_F(TcpStreamTest, tellsAFailureWhoseErrorIsNotKnown)
{
    onQueue([this] {
        peer.reset();
        pollfd reset{.fd = observed, .events = 0, .revents = 0};
        EXPECT_EQ(::poll(&reset, 1, -1), 1);
        EXPECT_EQ(takeSocketError(observed), std::errc::connection_reset);
    });
    EXPECT_EQ(take(firstFailure.get_future()), std::errc::connection_reset);
}

TEST_F(TcpStreamTest, tellsNoFailureAfterItWasClosed)
{
    onQueue([this] {
        peer.reset();
        pollfd reset{.fd = observed, .events = 0, .revents = 0};
        EXPECT_EQ(::poll(&reset, 1, -1), 1);
        // Finds the reset, and queues the report behind this.
        stream->send(makeContent("x"), [](std::error_code error) { EXPECT_TRUE(error); });
        stream->close(Ending::EndOfStream);
    });
    settle();
    EXPECT_EQ(failures, 0);
}

TEST_F(TcpStreamTest, refusesAContentWhoseBytesItCannotReach)
{
    class Elsewhere final : public ContentStorage {
        std::size_t size() const override { return 4; }
        std::span<const std::byte> bytes() const override { return {}; }
    };
    std::promise<std::error_code> sent;
    onQueue([&] {
        stream->send(Content(std::make_unique<Elsewhere>()),
                     [&sent](std::error_code error) { sent.set_value(error); });
    });
    EXPECT_EQ(take(sent.get_future()), std::errc::invalid_argument);
}

} // namespace quillbox
