#include "platform/tcp/socket_calls.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/netlink/network_namespace.h"
#include "tests/platform/tcp/tcp_harness.h"

#include <future>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using State = Connection::State;

} // namespace

TEST(ConnectorRetry, dialsAnAddressAtOnceThatIsAnnouncedAgain)
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
        harness.dnsSd.deliver(0, found({}));
        ASSERT_TRUE(subject.log->waitFor(State::Waiting));
        // The address cannot be reached, but as another family is to come, this sets no timer
        // either: only the announcement of the address can cause the second attempt.
        auto update = found({{.address = ipv4Address("127.0.0.1", kPort), .interfaceIndex = 1}});
        update.isSettledIPv6 = false;
        harness.dnsSd.deliver(0, update);
        // The address book's queue first, then the connection's.
        std::promise<void> isTold;
        harness.dnsSd.record(0).queue->async([&isTold] { isTold.set_value(); });
        isTold.get_future().wait();
        subject.settle();
        subject.settle();
        EXPECT_EQ(subject.log->count(State::Ready), 0U);
        setLoopbackUp(true);
        harness.dnsSd.deliver(0, update);
        EXPECT_TRUE(subject.log->waitFor(State::Ready));
        harness.pool.shutdown();
    });
}

TEST(ConnectorRetry, beginsWithAShortPauseAgainAfterAChangeOfTheNetwork)
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

} // namespace quillbox
