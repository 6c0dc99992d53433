#include "platform/netlink/netlink_monitor.h"
#include "platform/tcp/socket_calls.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/netlink/network_namespace.h"
#include "tests/platform/tcp/scripted_names.h"
#include "tests/platform/tcp/tcp_harness.h"

#include <future>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using State = Connection::State;

} // namespace

TEST(Connector, connectsWhenTheNetworkComesUp)
{
    inNetworkNamespace([] {
        Harness harness;
        // The scripted monitor does not observe this namespace.
        const auto monitor = makeNetworkMonitor(harness.pool);
        TcpNetwork network(harness.pool, harness.dnsSd, *monitor);
        Subject subject(network.makeConnection(HostEndpoint{.host = "127.0.0.1", .port = 4445}, {}),
                        harness.makeQueue());
        subject.start();
        ASSERT_TRUE(subject.log->waitFor(State::Waiting));
        EXPECT_EQ(subject.log->errorOf(State::Waiting), std::errc::network_unreachable);
        // Nothing listens on the port: a refusal shows that the address was dialled.
        setLoopbackUp(true);
        EXPECT_TRUE(subject.log->waitFor(State::Failed, 900ms)) << "at once, not after a pause";
        harness.pool.shutdown();
    });
}

TEST(Connector, triesAgainAfterAPauseWhenNoEventComes)
{
    inNetworkNamespace([] {
        Harness harness;
        auto subject = harness.dial("127.0.0.1", 4445);
        ASSERT_TRUE(subject.log->waitFor(State::Waiting));
        setLoopbackUp(true);
        EXPECT_TRUE(subject.log->waitFor(State::Failed, 3s));
    });
}

TEST(Connector, dialsAnAddressAtOnceThatIsAnnouncedAgain)
{
    inNetworkNamespace([] {
        constexpr std::uint16_t kPort = 4445;
        std::error_code error;
        const Peer phone(openListeningSocket(kPort, true, error));
        ASSERT_FALSE(error) << error.message();
        Harness harness;
        auto subject = harness.dial(kPhone);
        ASSERT_TRUE(harness.dnsSd.waitForCount(1, kPatience));
        // It waits for an address, without a timer.
        harness.resolution().tell(found({}));
        ASSERT_TRUE(subject.log->waitFor(State::Waiting));
        // The address cannot be reached, but as another family is to come, this sets no timer
        // either: only the announcement of the address can cause the second attempt.
        auto update = found({{.address = ipv4Address("127.0.0.1", kPort), .interfaceIndex = 1}});
        update.isSettledIPv6 = false;
        harness.resolution().tell(update);
        // The address book's queue first, then the connection's.
        std::promise<void> isTold;
        harness.resolution().queue->async([&isTold] { isTold.set_value(); });
        isTold.get_future().wait();
        subject.settle();
        subject.settle();
        EXPECT_EQ(subject.log->count(State::Ready), 0U);
        setLoopbackUp(true);
        harness.resolution().tell(update);
        EXPECT_TRUE(subject.log->waitFor(State::Ready));
        harness.pool.shutdown();
    });
}

TEST(Connector, beginsWithAShortPauseAgainAfterAChangeOfTheNetwork)
{
    inNetworkNamespace([] {
        Harness harness;
        auto subject = harness.dial("127.0.0.1", 4445);
        ASSERT_TRUE(subject.log->waitFor(State::Waiting));
        // Each change causes an attempt that fails. If the pause grew with each of them, it would
        // be more than 20 seconds in the end.
        for (int count = 0; count < 5; ++count) {
            harness.monitor.tellChange();
            subject.settle();
        }
        // The scripted monitor does not tell this.
        setLoopbackUp(true);
        EXPECT_TRUE(subject.log->waitFor(State::Failed, kPatience / 2)) << "after a second";
        harness.pool.shutdown();
    });
}

TEST(Connector, beginsWithAShortPauseAgainAfterAChangeOfTheRecords)
{
    inNetworkNamespace([] {
        Harness harness;
        auto subject = harness.dial(kPhone);
        ASSERT_TRUE(harness.dnsSd.waitForCount(1, kPatience));
        const auto update =
            found({{.address = ipv4Address("127.0.0.1", 4445), .interfaceIndex = 1}});
        for (int count = 0; count < 6; ++count) {
            harness.resolution().tell(update);
            std::promise<void> isTold;
            harness.resolution().queue->async([&isTold] { isTold.set_value(); });
            isTold.get_future().wait();
            subject.settle();
            subject.settle();
        }
        ASSERT_TRUE(subject.log->waitFor(State::Waiting));
        setLoopbackUp(true);
        EXPECT_TRUE(subject.log->waitFor(State::Failed, kPatience / 2)) << "after a second";
        harness.pool.shutdown();
    });
}

TEST(Connector, dialsAnAddressAgainThatTheNameServiceFindsAgain)
{
    inNetworkNamespace([] {
        ScriptedNames names;
        Harness harness;
        auto subject = harness.dial(kScriptedName, 4445);
        names.answer({"127.0.0.1"});
        ASSERT_TRUE(subject.log->waitFor(State::Waiting));
        setLoopbackUp(true);
        names.answer({"127.0.0.1"});
        EXPECT_TRUE(subject.log->waitFor(State::Failed)) << "refused";
        harness.pool.shutdown();
    });
}

TEST(Connector, waitsLongerAfterEachAttempt)
{
    ScriptedNames names;
    Harness harness;
    // Nothing can be sent to the address.
    auto subject = harness.dial(kScriptedName, 4445);
    names.answer({"fe80::1"});
    ASSERT_TRUE(names.waitForLookups(2, kPatience)) << "after a second";
    names.answer({"fe80::1"});
    EXPECT_FALSE(names.waitForLookups(3, 1500ms)) << "after two seconds more";
    EXPECT_TRUE(names.waitForLookups(3, kPatience));
}

} // namespace quillbox
