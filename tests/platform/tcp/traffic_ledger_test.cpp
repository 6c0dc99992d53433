#include "platform/tcp/traffic_ledger.h"
#include "tests/platform/tcp/tcp_harness.h"

#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <malloc.h>

namespace quillbox {

namespace {

Traffic trafficOf(const Harness& harness)
{
    return harness.network->traffic().listeners.at(harness.serviceName);
}

/// The traffic once `isAwaited` holds, or the current traffic after `kPatience`. Counters may
/// change slightly later than the test can see the cause.
template <typename Condition> Traffic awaited(const Harness& harness, Condition isAwaited)
{
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!isAwaited(trafficOf(harness)) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    return trafficOf(harness);
}

} // namespace

TEST(TrafficLedger, countsEachListenerAndTheSum)
{
    TrafficLedger ledger;
    const auto office = ledger.add("Office");
    const auto kitchen = ledger.add("Kitchen");
    const CountedSession first(office);
    {
        CountedSession second(kitchen);
        second.noteReceived(10);
        second.noteSent(20);
        const auto report = ledger.report();
        EXPECT_EQ(report.total.sessions, 2U);
        EXPECT_EQ(
            report.listeners.at("Kitchen"),
            (Traffic{.sessions = 1, .sessionsInAll = 1, .bytesReceived = 10, .bytesSent = 20}));
    }
    const auto report = ledger.report();
    EXPECT_EQ(report.total,
              (Traffic{.sessions = 1, .sessionsInAll = 2, .bytesReceived = 10, .bytesSent = 20}));
    EXPECT_EQ(report.listeners.at("Kitchen").sessions, 0U);
    EXPECT_EQ(report.listeners.at("Office"), (Traffic{.sessions = 1, .sessionsInAll = 1}));
}

TEST(TrafficLedger, forgetsAListenerButNotWhatItCarried)
{
    TrafficLedger ledger;
    CountedSession(ledger.add("Office")).noteReceived(7);
    EXPECT_TRUE(ledger.report().listeners.empty());
    EXPECT_EQ(ledger.report().total, (Traffic{.sessionsInAll = 1, .bytesReceived = 7}));
}

TEST(TrafficLedger, doesNotGrowWithTheListenersThatHaveBeen)
{
    constexpr std::size_t kListeners = 10'000;
    TrafficLedger ledger;
    const auto before = ::mallinfo2().uordblks;
    for (std::size_t count = 0; count < kListeners; ++count)
        ledger.add(std::string(1000, 'x'));
    EXPECT_LT(::mallinfo2().uordblks, before + kListeners * 100) << "bytes";
}

TEST(TrafficLedger, ofTwoListenersWithOneNameTellsTheNewer)
{
    TrafficLedger ledger;
    const auto older = ledger.add("Ku\u0308che");
    const auto newer = ledger.add("Küche");
    CountedSession(older).noteSent(1);
    CountedSession(newer).noteSent(2);
    EXPECT_EQ(ledger.report().listeners.size(), 1U);
    EXPECT_EQ(ledger.report().listeners.at("Küche").bytesSent, 2U);
    EXPECT_EQ(ledger.report().total.bytesSent, 3U);
}

TEST(TcpTraffic, ofAcceptedConnectionsIsCountedBothWays)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    EXPECT_EQ(trafficOf(harness), (Traffic{.sessions = 1, .sessionsInAll = 1}));

    // Large enough to use pipes as well.
    const auto bytes = pattern(4 * kMaximumContentSize);
    std::thread sender([&bytes, &remote = peer] { EXPECT_TRUE(remote.send(bytes)); });
    std::size_t received = 0;
    while (received < bytes.size()) {
        const auto chunk = take(subject.receive());
        ASSERT_FALSE(chunk.error);
        received += chunk.bytes.size();
    }
    sender.join();
    auto sent = subject.send(pattern(123));
    EXPECT_EQ(peer.receiveExactly(123).size(), 123U);
    EXPECT_FALSE(take(std::move(sent)));

    EXPECT_EQ(
        trafficOf(harness),
        (Traffic{
            .sessions = 1, .sessionsInAll = 1, .bytesReceived = bytes.size(), .bytesSent = 123}));
}

TEST(TcpTraffic, aSessionIsOpenUntilItIsCancelled)
{
    Harness harness;
    auto [subject, peer] = harness.acceptedPair();
    peer.close();
    EXPECT_TRUE(take(subject.receive()).isComplete);
    EXPECT_EQ(trafficOf(harness).sessions, 1U);
    subject.cancel();
    subject.settle();
    EXPECT_EQ(trafficOf(harness), (Traffic{.sessions = 0, .sessionsInAll = 1}));
}

TEST(TcpTraffic, aConnectionThatIsDroppedUnstartedIsNoOpenSession)
{
    Harness harness;
    harness.listen();
    const auto peer = connectPeer(harness.listeningPort());
    auto accepted = harness.nextAccepted();
    ASSERT_TRUE(accepted);
    EXPECT_EQ(trafficOf(harness).sessions, 1U);
    accepted = nullptr;
    const auto after = awaited(harness, [](const Traffic& t) { return t.sessions == 0; });
    EXPECT_EQ(after, (Traffic{.sessions = 0, .sessionsInAll = 1}));
}

TEST(TcpTraffic, ofConnectionsThatWereDialledIsNotCounted)
{
    Harness harness;
    harness.listen();
    const PeerListener phone;
    auto subject = harness.dial("127.0.0.1", phone.port());
    const auto peer = phone.accept();
    ASSERT_TRUE(subject.log->waitFor(Connection::State::Ready));
    ASSERT_TRUE(peer.send("abc"));
    EXPECT_EQ(take(subject.receive(3)).bytes, "abc");
    EXPECT_EQ(harness.network->traffic().total, Traffic());
}

TEST(TcpTraffic, ofAListenerThatIsClosedIsNotListedAnyMore)
{
    Harness harness;
    std::error_code error;
    const auto listener = harness.network->makeListener({}, kAnyPort, error);
    ASSERT_TRUE(listener) << error.message();
    listener->setService({.name = "Office", .type = "_smb._tcp"});
    const auto queue = harness.makeQueue();
    const auto namesAfter = [&](const std::function<void()>& work) {
        std::promise<std::size_t> count;
        queue->async([&] {
            work();
            count.set_value(harness.network->traffic().listeners.count("Office"));
        });
        return take(count.get_future());
    };
    EXPECT_EQ(namesAfter([] {}), 0U);
    EXPECT_EQ(namesAfter([&] { listener->start(queue); }), 1U);
    EXPECT_EQ(namesAfter([&] { listener->cancel(); }), 0U);
}

} // namespace quillbox
