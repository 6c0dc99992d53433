#include "platform/tcp/tcp_stream.h"
#include "tests/fakes/fake_network.h"
#include "tests/platform/tcp/tcp_backstage.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <future>
#include <memory>
#include <span>
#include <string>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

namespace quillbox {

namespace {

/// Makes splice(2) fail with EINVAL on this thread from now on, as on a system that cannot splice
/// sockets. False if that is not permitted.
bool refuseSplices()
{
    std::array<sock_filter, 4> code{{
        {.code = BPF_LD | BPF_W | BPF_ABS, .jt = 0, .jf = 0, .k = offsetof(seccomp_data, nr)},
        {.code = BPF_JMP | BPF_JEQ | BPF_K, .jt = 0, .jf = 1, .k = SYS_splice},
        {.code = BPF_RET | BPF_K, .jt = 0, .jf = 0, .k = SECCOMP_RET_ERRNO | EINVAL},
        {.code = BPF_RET | BPF_K, .jt = 0, .jf = 0, .k = SECCOMP_RET_ALLOW},
    }};
    const sock_fprog program{.len = code.size(), .filter = code.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0
           && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) == 0;
}

} // namespace

class TcpStreamTest : public Backstage {
protected:
    TcpStreamTest()
    {
        const int descriptor = ::dup(accepted.descriptor());
        ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
        accepted.close();
        observed = descriptor;
        auto socket = Socket::adopt(context->pool, descriptor, context->sockets->open());
        stream = std::make_shared<TcpStream>(context, strandOf(*queue), std::move(socket), nullptr);
        onQueue([this] { stream->open([this](std::error_code) { ++failures; }); });
    }

    ~TcpStreamTest() override
    {
        onQueue([this] { stream->close(Ending::EndOfStream); });
        pool.shutdown();
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
};

TEST_F(TcpStreamTest, borrowsNoPipesAnyMoreOnceASpliceWasRefused)
{
    bool isRefused = false;
    onQueue([&isRefused] { isRefused = refuseSplices(); });
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
