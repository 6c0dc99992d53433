#include "platform/connection.h"
#include "platform/tcp/pipe_pool.h"
#include "tests/fakes/descriptor_shortage.h"
#include "tests/fakes/fake_network.h"
#include "tests/platform/tcp/refused_calls.h"
#include "tests/platform/tcp/tcp_harness.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace quillbox {

namespace {

/// A pair of connected non-blocking sockets.
class SocketPair final {
public:
    explicit SocketPair(int type = SOCK_STREAM)
    {
        if (::socketpair(AF_UNIX, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends_.data()) != 0)
            throw std::runtime_error("no pair of sockets");
    }
    ~SocketPair()
    {
        ::close(ends_[0]);
        ::close(ends_[1]);
    }

    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    int near() const { return ends_[0]; }
    int far() const { return ends_[1]; }

    void put(const std::string& bytes) const
    {
        EXPECT_EQ(::send(far(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    }

    std::string get() const
    {
        std::string bytes(kMaximumContentSize, '\0');
        const auto count = ::recv(far(), bytes.data(), bytes.size(), 0);
        bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        return bytes;
    }

private:
    std::array<int, 2> ends_{};
};

;

std::string moved(const Transfer& transfer, const SocketPair& sink)
{
    EXPECT_FALSE(transfer.error) << transfer.error.message();
    return sink.get();
}

} // namespace

TEST(PipePool, carriesAChunkFromSocketToSocket)
{
    const auto pool = std::make_shared<PipePool>();
    const SocketPair source;
    const SocketPair sink;
    const auto bytes = pattern(100'000);
    source.put(bytes);
    const auto chunk = pool->borrow();
    EXPECT_EQ(chunk->fill(source.near(), kMaximumContentSize).count, bytes.size());
    EXPECT_EQ(chunk->size(), bytes.size());
    EXPECT_TRUE(chunk->bytes().empty());
    EXPECT_EQ(moved(chunk->drain(sink.near()), sink), bytes);
    EXPECT_EQ(chunk->size(), bytes.size());
}

TEST(PipePool, takesNoMoreThanTheLimit)
{
    const auto pool = std::make_shared<PipePool>();
    const SocketPair source;
    source.put("abcdef");
    const auto chunk = pool->borrow();
    EXPECT_EQ(chunk->fill(source.near(), 4).count, 4U);
}

TEST(PipePool, saysThatThereIsNothing)
{
    const auto pool = std::make_shared<PipePool>();
    const SocketPair source;
    EXPECT_TRUE(pool->borrow()->fill(source.near(), 4).wouldBlock());
    ::shutdown(source.far(), SHUT_WR);
    EXPECT_TRUE(pool->borrow()->fill(source.near(), 4).isEnd());
}

TEST(PipePool, lendsAPipeAgainOnceItIsEmpty)
{
    const auto pool = std::make_shared<PipePool>();
    const SocketPair source;
    const SocketPair sink;
    source.put("abc");
    auto chunk = pool->borrow();
    EXPECT_EQ(pool->lent(), 1U);
    chunk->fill(source.near(), 3);
    chunk->drain(sink.near());
    chunk.reset();
    EXPECT_EQ(pool->lent(), 0U);
    EXPECT_EQ(pool->kept(), 1U);
    const auto before = openDescriptorCount();
    const auto again = pool->borrow();
    EXPECT_EQ(pool->kept(), 0U);
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(PipePool, closesAPipeThatStillHoldsBytes)
{
    const auto pool = std::make_shared<PipePool>();
    const SocketPair source;
    source.put("abc");
    const auto before = openDescriptorCount();
    auto chunk = pool->borrow();
    chunk->fill(source.near(), 3);
    chunk.reset();
    EXPECT_EQ(pool->kept(), 0U);
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(PipePool, lendsSoManyAndNoMore)
{
    const auto pool = std::make_shared<PipePool>(2);
    auto first = pool->borrow();
    const auto second = pool->borrow();
    EXPECT_TRUE(first);
    EXPECT_TRUE(second);
    EXPECT_FALSE(pool->borrow());
    first.reset();
    EXPECT_TRUE(pool->borrow());
}

TEST(PipePool, doesNotAskASystemThatHasNoneOverAndOver)
{
    const auto pool = std::make_shared<PipePool>();
    {
        const DescriptorShortage shortage;
        EXPECT_FALSE(pool->borrow());
    }
    EXPECT_FALSE(pool->borrow());
    EXPECT_EQ(pool->lent(), 0U);
}

TEST(PipePool, lendsAPipeThatItHasShortlyAfterTheSystemRefusedAnother)
{
    const auto pool = std::make_shared<PipePool>();
    auto first = pool->borrow();
    {
        const DescriptorShortage shortage;
        EXPECT_FALSE(pool->borrow());
    }
    first.reset();
    EXPECT_TRUE(pool->borrow());
}

TEST(PipePool, lendsNoPipeThatIsTooSmall)
{
    bool isRefused = false;
    bool isLent = true;
    const auto before = openDescriptorCount();
    std::thread([&] {
        isRefused = refuseCalls(SYS_fcntl, EPERM);
        isLent = std::make_shared<PipePool>()->borrow() != nullptr;
    }).join();
    if (!isRefused)
        GTEST_SKIP() << "no permission to filter system calls";
    EXPECT_FALSE(isLent);
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(PipePool, knowsTheErrorsOfASystemThatCannotSplice)
{
    for (const auto error : {std::errc::invalid_argument, std::errc::function_not_supported,
                             std::errc::bad_file_descriptor, std::errc::operation_not_permitted,
                             std::errc::operation_not_supported})
        EXPECT_TRUE(isSpliceRefused({.count = 0, .error = std::make_error_code(error)}));
    for (const auto error : {std::errc::connection_reset, std::errc::operation_would_block})
        EXPECT_FALSE(isSpliceRefused({.count = 0, .error = std::make_error_code(error)}));
    EXPECT_FALSE(isSpliceRefused({}));
}

TEST(PipePool, lendsNoneOnceItHasGivenUp)
{
    const auto pool = std::make_shared<PipePool>();
    const auto out = pool->borrow();
    {
        const auto other = pool->borrow();
    }
    EXPECT_EQ(pool->kept(), 1U);
    pool->giveUp();
    EXPECT_EQ(pool->kept(), 0U);
    EXPECT_FALSE(pool->borrow());
}

TEST(PipePool, keepsNoPipeThatComesBackAfterItGaveUp)
{
    const auto pool = std::make_shared<PipePool>();
    auto chunk = pool->borrow();
    pool->giveUp();
    chunk.reset();
    EXPECT_EQ(pool->kept(), 0U);
}

TEST(PipePool, livesForAsLongAsItsChunks)
{
    auto pool = std::make_shared<PipePool>();
    const auto chunk = pool->borrow();
    pool.reset();
    EXPECT_EQ(chunk->size(), 0U);
}

TEST(PendingSend, sendsWhatIsInMemory)
{
    const SocketPair sink;
    ChunkPool chunks;
    PendingSend unsent(makeContent("abc"));
    EXPECT_TRUE(unsent.isSendable());
    EXPECT_EQ(moved(unsent.sendSome(sink.near(), chunks), sink), "abc");
    EXPECT_TRUE(unsent.isNothing());
}

TEST(PendingSend, goesOnWhereASinkThatWasFullLeftIt)
{
    const auto pool = std::make_shared<PipePool>();
    const auto chunks = std::make_shared<ChunkPool>();
    const SocketPair source;
    const SocketPair sink;
    const auto bytes = pattern(100'000);
    source.put(bytes);
    auto chunk = pool->borrow();
    chunk->fill(source.near(), kMaximumContentSize);
    PendingSend unsent{Content(std::move(chunk))};
    const std::string filling(300'000, 'x');
    while (::send(sink.near(), filling.data(), filling.size(), MSG_DONTWAIT) > 0) {
    }
    EXPECT_TRUE(unsent.sendSome(sink.near(), *chunks).wouldBlock());
    while (!sink.get().empty()) {
    }
    std::string all;
    while (!unsent.isNothing()) {
        unsent.sendSome(sink.near(), *chunks);
        all += sink.get();
    }
    EXPECT_TRUE(all == bytes);
}

TEST(PendingSend, goesByWayOfMemoryWhereThePipeIsRefused)
{
    const auto pool = std::make_shared<PipePool>();
    const auto chunks = std::make_shared<ChunkPool>();
    const SocketPair source;
    source.put("abcdef");
    auto chunk = pool->borrow();
    chunk->fill(source.near(), 6);
    PendingSend unsent{Content(std::move(chunk))};
    // splice() into a file opened with O_APPEND fails with EINVAL; the fallback, send(), fails with
    // ENOTSOCK.
    const int file = ::open("/tmp", O_TMPFILE | O_WRONLY | O_APPEND | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    EXPECT_EQ(unsent.sendSome(file, *chunks).error, std::errc::not_a_socket);
    ::close(file);
    const SocketPair sink;
    EXPECT_EQ(moved(unsent.sendSome(sink.near(), *chunks), sink), "abcdef");
    EXPECT_TRUE(unsent.isNothing());
    EXPECT_EQ(pool->kept(), 1U) << "the pipe is empty";
}

TEST(PendingSend, losesAndRepeatsNoByteWhenThePipeIsRefusedInTheMiddle)
{
    const auto pool = std::make_shared<PipePool>();
    const auto chunks = std::make_shared<ChunkPool>();
    const SocketPair source;
    const SocketPair sink;
    const int small = 4096;
    ASSERT_EQ(::setsockopt(sink.near(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small), 0);
    const auto bytes = pattern(100'000);
    source.put(bytes);
    auto chunk = pool->borrow();
    chunk->fill(source.near(), kMaximumContentSize);
    PendingSend unsent{Content(std::move(chunk))};
    while (!unsent.sendSome(sink.near(), *chunks).error) {
    }
    ASSERT_GT(unsent.left(), 0U);
    ASSERT_LT(unsent.left(), bytes.size());
    // From here on, splice() is refused; see above.
    const int file = ::open("/tmp", O_TMPFILE | O_WRONLY | O_APPEND | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    EXPECT_EQ(unsent.sendSome(file, *chunks).error, std::errc::not_a_socket);
    ::close(file);
    // The rest goes out of memory, in several parts as well.
    auto all = sink.get();
    while (!unsent.isNothing()) {
        const auto sent = unsent.sendSome(sink.near(), *chunks);
        ASSERT_TRUE(!sent.error || sent.wouldBlock()) << sent.error.message();
        all += sink.get();
    }
    EXPECT_EQ(all.size(), bytes.size());
    EXPECT_TRUE(all == bytes);
}

TEST(PendingSend, failsWhenThePipeCanNeitherBeSplicedNorRead)
{
    const SocketPair source;
    const SocketPair sink;
    source.put("abc");
    bool isRefused = false;
    std::error_code error;
    std::thread([&] {
        auto chunk = std::make_shared<PipePool>()->borrow();
        EXPECT_EQ(chunk->fill(source.near(), kMaximumContentSize).count, 3U);
        isRefused = refuseCalls(SYS_splice, EINVAL) && refuseCalls(SYS_read, EIO);
        error = PendingSend(Content(std::move(chunk)))
                    .sendSome(sink.near(), *std::make_shared<ChunkPool>())
                    .error;
    }).join();
    if (!isRefused)
        GTEST_SKIP() << "no permission to filter system calls";
    EXPECT_EQ(error, std::errc::io_error);
}

TEST(PendingSend, aDeadSinkIsAnErrorAndNoSignal)
{
    const auto pool = std::make_shared<PipePool>();
    const auto chunks = std::make_shared<ChunkPool>();
    const SocketPair source;
    source.put("abc");
    auto chunk = pool->borrow();
    chunk->fill(source.near(), 3);
    PendingSend unsent{Content(std::move(chunk))};
    const auto former = std::signal(SIGPIPE, SIG_IGN);
    const SocketPair sink;
    ::shutdown(sink.near(), SHUT_WR);
    EXPECT_EQ(unsent.sendSome(sink.near(), *chunks).error, std::errc::broken_pipe);
    EXPECT_FALSE(unsent.isNothing());
    std::signal(SIGPIPE, former);
}

} // namespace quillbox
