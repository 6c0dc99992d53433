#include "platform/netlink/netlink_monitor.h"
#include "tests/fakes/descriptor_shortage.h"
#include "tests/platform/netlink/network_namespace.h"
#include "tests/platform/tcp/tcp_harness.h"

#include <future>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <unistd.h>

namespace quillbox {

namespace {

using State = Connection::State;

/// A host in a network namespace of its own, with the address 192.0.2.1. It is at the far end of an
/// interface that this makes in the thread's namespace.
std::unique_ptr<PeerListener> hostBehind(const std::string& interface)
{
    std::unique_ptr<PeerListener> listener;
    const auto here = std::to_string(::gettid());
    std::thread([&] {
        ASSERT_EQ(::unshare(CLONE_NEWNET), 0);
        ip("link add far type veth peer name " + interface + " netns " + here);
        ip("link set far address 02:00:00:00:00:01 up");
        ip("address add 192.0.2.1/24 dev far");
        listener = std::make_unique<PeerListener>("192.0.2.1");
    }).join();
    return listener;
}

/// A computer with the interface "lan", and with "wlan" in the same network, which the kernel uses
/// for bound sockets only. The test has made both, in a network namespace.
class Computer final {
public:
    Computer()
    {
        ip("address add 192.0.2.7/24 dev lan");
        ip("link set lan up");
        ip("address add 192.0.2.8/24 dev wlan noprefixroute");
        ip("link set wlan up");
        ip("route add 192.0.2.0/24 dev wlan metric 600");
    }
    ~Computer() { harness.pool.shutdown(); }

    Computer(const Computer&) = delete;
    Computer& operator=(const Computer&) = delete;

    /// Delivers the records of a phone, which arrived on these interfaces, and returns when its
    /// address has been dialled.
    void find(const PeerListener& phone, const std::vector<int>& interfaces)
    {
        std::vector<DnsSd::FoundAddress> addresses;
        for (const int index : interfaces)
            addresses.push_back({.address = phone.address(), .interfaceIndex = index});
        EXPECT_TRUE(harness.dnsSd.waitForCount(1, kPatience));
        harness.resolution().tell(found(addresses));
        // The address book's queue first, then the connection's.
        std::promise<void> isTold;
        harness.resolution().queue->async([&isTold] { isTold.set_value(); });
        isTold.get_future().wait();
        subject.settle();
    }

    const int lan = static_cast<int>(::if_nametoindex("lan"));
    const int wlan = static_cast<int>(::if_nametoindex("wlan"));
    Harness harness;
    const std::unique_ptr<NetworkMonitor> monitor = makeNetworkMonitor(harness.pool);
    TcpNetwork network{harness.pool, harness.dnsSd, *monitor};
    Subject subject{network.makeConnection(kPhone, {}), harness.makeQueue()};
};

} // namespace

TEST(ConnectorRoutes, failsWhenThereIsNoDescriptorForAnAddressFromTheNetwork)
{
    inNetworkNamespace([] {
        const auto phone = hostBehind("lan");
        const auto other = hostBehind("wlan");
        Computer computer;
        const DescriptorShortage shortage;
        computer.subject.start();
        computer.find(*phone, {computer.lan});
        ASSERT_TRUE(computer.subject.log->waitFor(State::Failed));
        EXPECT_EQ(computer.subject.log->errorOf(State::Failed), std::errc::too_many_files_open);
    });
}

TEST(ConnectorRoutes, connectsThoughNoDescriptorIsLeftDuringTheAttempt)
{
    inNetworkNamespace([] {
        const auto phone = hostBehind("lan");
        const auto other = hostBehind("wlan");
        Computer computer;
        // The first request goes astray, the next one, after a second, does not.
        ip("neigh replace 192.0.2.1 dev lan lladdr 02:00:00:00:00:99 nud permanent");
        computer.subject.start();
        computer.find(*phone, {computer.lan});
        ip("neigh replace 192.0.2.1 dev lan lladdr 02:00:00:00:00:01 nud permanent");
        EXPECT_EQ(computer.subject.log->states(), std::vector{State::Preparing});
        const DescriptorShortage shortage;
        EXPECT_TRUE(computer.subject.log->waitFor(State::Ready));
    });
}

TEST(ConnectorRoutes, reachesAPhoneByTheInterfaceOfItsRecordWhereTheKernelWouldTakeAnother)
{
    inNetworkNamespace([] {
        const auto other = hostBehind("lan");
        const auto phone = hostBehind("wlan");
        Computer computer;
        computer.subject.start();
        computer.find(*phone, {computer.wlan});
        EXPECT_TRUE(computer.subject.log->waitFor(State::Ready));
    });
}

TEST(ConnectorRoutes, dialsAgainAtOnceWhenARecordArrivesOnABetterInterface)
{
    inNetworkNamespace([] {
        const auto phone = hostBehind("lan");
        const auto other = hostBehind("wlan");
        Computer computer;
        // The attempt through this interface gets no answer.
        ip("neigh replace 192.0.2.1 dev wlan lladdr 02:00:00:00:00:99 nud permanent");
        computer.subject.start();
        computer.find(*phone, {computer.wlan});
        EXPECT_EQ(computer.subject.log->states(), std::vector{State::Preparing});
        computer.find(*phone, {computer.wlan, computer.lan});
        ASSERT_TRUE(computer.subject.log->waitFor(State::Ready));
        EXPECT_EQ(computer.subject.log->states(), (std::vector{State::Preparing, State::Ready}))
            << "before the first attempt has failed";
    });
}

} // namespace quillbox
