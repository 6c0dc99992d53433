#include "bench/air.h"
#include "bench/blocks.h"
#include "bench/tcp.h"

#include <array>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace quillbox::bench {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr std::uint64_t kSlow = 1'250'000; // bytes per second
constexpr std::uint64_t kFast = 10 * kSlow;

std::pair<Descriptor, Descriptor> connectedPair()
{
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw std::runtime_error("socketpair");
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

/// A sender and what has arrived from it.
class Blocks : public ::testing::Test, public Poller::Watcher {
protected:
    void ready(std::uint32_t /*events*/) override
    {
        if (finishesAt != 0 && sender->isBetweenBlocks() && ++begun >= finishesAt)
            sender->finishNext();
        EXPECT_TRUE(sender->send());
    }

    void send(const Pace& pace, Clock::time_point begin)
    {
        poller.add(ends.first.get(), EPOLLIN, *this);
        sender.emplace(poller, *this, ends.first.get(), pace, begin);
    }

    /// Reads all that is there; returns whether the last block is complete.
    bool receive()
    {
        std::vector<std::byte> buffer(1UL << 20);
        bool isLast = false;
        while (const auto count = readSome(ends.second.get(), buffer).count) {
            received += count;
            isLast = reader.take(std::span(buffer).first(count), latencies) || isLast;
        }
        return isLast;
    }

    void pollAndReceive(Clock::time_point until)
    {
        poller.poll(until);
        receive();
    }

    std::pair<Descriptor, Descriptor> ends = connectedPair();
    Poller poller;
    std::optional<BlockSender> sender;
    BlockReader reader;
    Histogram latencies;
    std::size_t received = 0;
    int finishesAt = 0; ///< the number of the last block, if there is one
    int begun = 0;
};

TEST_F(Blocks, come_as_fast_as_they_are_read_without_a_pace)
{
    finishesAt = 20;
    send({}, Clock::now());
    const auto until = Clock::now() + seconds(20);
    while (!receive() && Clock::now() < until)
        poller.poll(until);
    EXPECT_EQ(latencies.count(), 20U);
    EXPECT_EQ(received, 20 * kBlockSize);
    EXPECT_EQ(sender->bytes(), received);
}

TEST_F(Blocks, end_with_the_last_one)
{
    finishesAt = 1;
    send({}, Clock::now());
    const auto until = Clock::now() + seconds(20);
    while (!receive() && Clock::now() < until)
        poller.poll(until);
    poller.poll(Clock::now() + milliseconds(20));
    receive();
    EXPECT_EQ(received, kBlockSize);
}

TEST_F(Blocks, are_sent_when_their_aggregates_are_due_and_not_before)
{
    const Pace pace{.bytesPerSecond = kSlow};
    const auto begin = Clock::now();
    send(pace, begin);
    for (std::uint64_t number = 0; number < 5; ++number) {
        const auto next = aggregate(pace.bytesPerSecond, number);
        while (latencies.count() == number)
            pollAndReceive(begin + seconds(20));
        EXPECT_GE(Clock::now(), begin + next.due);
    }
    EXPECT_EQ(received, latencies.count() * kSmallestAggregate);
}

TEST_F(Blocks, of_one_of_several_streams_are_its_share_of_the_aggregates)
{
    const Pace pace{.bytesPerSecond = kFast, .stream = 1, .streams = 3};
    const auto begin = Clock::now();
    send(pace, begin);
    for (const std::uint64_t number : {1U, 4U, 7U}) {
        const auto before = latencies.count();
        while (latencies.count() == before)
            pollAndReceive(begin + seconds(20));
        EXPECT_GE(Clock::now(), begin + aggregate(pace.bytesPerSecond, number).due);
    }
}

TEST_F(Blocks, whose_time_has_passed_long_ago_are_left_out)
{
    const Pace pace{.bytesPerSecond = kFast};
    const auto begin = Clock::now();
    send(pace, begin - seconds(10));
    poller.poll(Clock::now() + seconds(1));
    receive();
    for (int count = 0; count < 200; ++count)
        pollAndReceive(Clock::now());
    // What is left is younger than 20 ms, and what has come since. The test may take its time.
    const std::chrono::duration<double> most = Clock::now() - begin + milliseconds(100);
    EXPECT_GE(latencies.count(), 1U);
    EXPECT_LT(static_cast<double>(received), most.count() * static_cast<double>(kFast));
}

TEST_F(Blocks, have_a_latency_from_the_first_attempt_to_send_them)
{
    finishesAt = 1;
    send({}, Clock::now());
    poller.poll(Clock::now() + seconds(1));
    const auto sent = Clock::now();
    // The rest does not fit before something has been read.
    while (Clock::now() < sent + milliseconds(5))
        poller.poll(sent + milliseconds(5));
    const auto until = Clock::now() + seconds(20);
    while (!receive() && Clock::now() < until)
        poller.poll(until);
    EXPECT_GE(latencies.percentile(1), milliseconds(5));
}

TEST(BlockReader, finds_the_heads_however_the_stream_is_cut)
{
    std::vector<std::byte> stream;
    for (const std::uint32_t size : {17U, 40U, 16'384U}) {
        const BlockHead head{
            .size = size, .isLast = size == 16'384U ? 1U : 0U, .sentAt = Clock::now()};
        const auto* bytes = reinterpret_cast<const std::byte*>(&head);
        stream.insert(stream.end(), bytes, bytes + sizeof head);
        stream.resize(stream.size() + size - sizeof head);
    }
    for (const std::size_t cut : {1UL, 7UL, 16UL, 17UL, 1000UL, stream.size()}) {
        BlockReader reader;
        Histogram latencies;
        std::size_t lasts = 0;
        for (std::size_t from = 0; from < stream.size(); from += cut) {
            const auto part = std::span(stream).subspan(from, std::min(cut, stream.size() - from));
            lasts += reader.take(part, latencies) ? 1 : 0;
        }
        EXPECT_EQ(latencies.count(), 3U) << cut;
        EXPECT_EQ(lasts, 1U) << cut;
    }
}

TEST(BlockReader, refuses_bytes_that_are_no_block)
{
    BlockReader reader;
    Histogram latencies;
    const std::vector<std::byte> zeros(100);
    EXPECT_THROW(reader.take(zeros, latencies), std::runtime_error);
}

class Caller final : public Poller::Watcher {
public:
    void ready(std::uint32_t events) override
    {
        EXPECT_EQ(events, 0U);
        calledAt.push_back(Clock::now());
    }

    std::vector<Clock::time_point> calledAt;
};

TEST(Poller, calls_a_watcher_once_at_its_time)
{
    Poller poller;
    Caller caller;
    const auto time = Clock::now() + std::chrono::microseconds(300);
    poller.callAt(time, caller);
    while (caller.calledAt.empty())
        poller.poll(time + seconds(20));
    EXPECT_GE(caller.calledAt.front(), time);
    poller.poll(Clock::now());
    EXPECT_EQ(caller.calledAt.size(), 1U);
}

TEST(Poller, forgets_the_calls_of_one_watcher_only)
{
    Poller poller;
    Caller dropped;
    Caller other;
    poller.callAt(Clock::now(), dropped);
    poller.callAt(Clock::now(), other);
    poller.dropCalls(dropped);
    poller.poll(Clock::now());
    EXPECT_EQ(dropped.calledAt.size(), 0U);
    EXPECT_EQ(other.calledAt.size(), 1U);
}

} // namespace
} // namespace quillbox::bench
