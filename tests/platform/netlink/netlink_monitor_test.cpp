#include "platform/netlink/netlink_monitor.h"
#include "platform/netlink/netlink_socket.h"
#include "tests/fakes/descriptor_shortage.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/netlink/network_namespace.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 10s;

std::size_t openDescriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

/// Counts calls and waits for them.
class Counter final {
public:
    void count()
    {
        const std::lock_guard lock(mutex_);
        ++calls_;
        changed_.notify_all();
    }

    bool waitFor(int calls, std::chrono::milliseconds limit = kPatience)
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return calls_ >= calls; });
    }

    int calls()
    {
        const std::lock_guard lock(mutex_);
        return calls_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int calls_ = 0;
};

} // namespace

TEST(NetlinkMonitor, tellsTheAddressesOfBothFamiliesInTheOrderOfInterfaces)
{
    inNetworkNamespace([] {
        DispatchPool pool;
        const auto monitor = makeNetworkMonitor(pool);
        EXPECT_TRUE(monitor->addresses().empty());
        setLoopbackUp(true);
        ip("link add lan type veth peer name wlan");
        const auto lan = static_cast<int>(::if_nametoindex("lan"));
        const auto wlan = static_cast<int>(::if_nametoindex("wlan"));
        for (const std::string name : {"lan", "wlan"}) {
            // The kernel adds link-local addresses at some time.
            ip("link set " + name + " addrgenmode none");
            ip("link set " + name + " up");
        }
        ip("address add 192.0.2.7/24 dev lan");
        ip("address add 2001:db8::7/64 dev lan nodad");
        ip("address add 192.0.2.8/24 dev wlan");
        ip("address add fe80::8/64 dev wlan nodad");
        std::vector<InterfaceAddress> expected{
            {1, "lo", true, ipv4Address("127.0.0.1")},
            {1, "lo", true, ipv6Address("::1")},
            {lan, "lan", false, ipv4Address("192.0.2.7")},
            {lan, "lan", false, ipv6Address("2001:db8::7")},
            {wlan, "wlan", false, ipv4Address("192.0.2.8")},
            {wlan, "wlan", false, ipv6Address("fe80::8", static_cast<std::uint32_t>(wlan))}};
        std::ranges::stable_sort(expected, {}, &InterfaceAddress::interfaceIndex);
        EXPECT_EQ(monitor->addresses(), expected);
    });
}

TEST(NetlinkMonitor, knowsAnAddressWhoseLabelNamesNoInterface)
{
    inNetworkNamespace([] {
        DispatchPool pool;
        const auto monitor = makeNetworkMonitor(pool);
        setLoopbackUp(true);
        ip("address add 127.0.0.2/8 dev lo label lo:second");
        ip("address add 127.0.0.3/8 dev lo label lounge");
        EXPECT_EQ(monitor->addresses(),
                  (std::vector<InterfaceAddress>{{0, "lounge", true, ipv4Address("127.0.0.3")},
                                                 {1, "lo", true, ipv4Address("127.0.0.1")},
                                                 {1, "lo:second", true, ipv4Address("127.0.0.2")},
                                                 {1, "lo", true, ipv6Address("::1")}}));
    });
}

TEST(NetlinkMonitor, makesOneCallOfChangesThatComeTogether)
{
    inNetworkNamespace([] {
        DispatchPool pool;
        const auto monitor = makeNetworkMonitor(pool);
        const auto queue = pool.makeQueue("test", QualityOfService::Utility);
        Counter counter;
        const auto subscription = monitor->subscribe(queue, [&counter] { counter.count(); });
        // Changes of the link, its addresses and their routes: about a dozen messages.
        const auto before = std::chrono::steady_clock::now();
        setLoopbackUp(true);
        setLoopbackUp(false);
        setLoopbackUp(true);
        ASSERT_TRUE(counter.waitFor(1));
        EXPECT_GE(std::chrono::steady_clock::now() - before, 100ms);
        EXPECT_FALSE(counter.waitFor(2, 300ms));
        setLoopbackUp(false);
        EXPECT_TRUE(counter.waitFor(2));
        pool.shutdown();
    });
}

TEST(NetlinkMonitor, reportsChangesAlsoWhileTheyDoNotEnd)
{
    inNetworkNamespace([] {
        DispatchPool pool;
        const auto monitor = makeNetworkMonitor(pool);
        const auto queue = pool.makeQueue("test", QualityOfService::Utility);
        Counter counter;
        const auto subscription = monitor->subscribe(queue, [&counter] { counter.count(); });
        const auto end = std::chrono::steady_clock::now() + kPatience;
        bool isUp = false;
        while (!counter.waitFor(2, 5ms) && std::chrono::steady_clock::now() < end) {
            isUp = !isUp;
            setLoopbackUp(isUp);
        }
        EXPECT_GE(counter.calls(), 2);
        pool.shutdown();
    });
}

TEST(NetlinkMonitor, tellsNoAddressOfAnInterfaceThatIsDown)
{
    inNetworkNamespace([] {
        DispatchPool pool;
        const auto monitor = makeNetworkMonitor(pool);
        setLoopbackUp(true);
        EXPECT_FALSE(monitor->addresses().empty());
        // The interface keeps its IPv4 address.
        setLoopbackUp(false);
        EXPECT_TRUE(monitor->addresses().empty());
    });
}

TEST(NetlinkMonitor, passesOverAnInterfaceThatHasNoAddressOfItsOwn)
{
    inNetworkNamespace([] {
        DispatchPool pool;
        const auto monitor = makeNetworkMonitor(pool);
        setLoopbackUp(true);
        const auto known = monitor->addresses();
        // A tunnel has no hardware address, so its entry in the list has no address at all.
        if (std::system("ip tuntap add tunnel mode tun && ip link set tunnel up") != 0)
            GTEST_SKIP() << "no permission to make a tunnel";
        EXPECT_EQ(monitor->addresses(), known);
    });
}

TEST(NetlinkMonitor, keepsTheKnownAddressesWhileTheKernelCannotBeAsked)
{
    inNetworkNamespace([] {
        DispatchPool pool;
        const auto monitor = makeNetworkMonitor(pool);
        setLoopbackUp(true);
        const auto known = monitor->addresses();
        ASSERT_FALSE(known.empty());
        const DescriptorShortage shortage;
        EXPECT_EQ(monitor->addresses(), known);
    });
}

TEST(NetlinkMonitor, tellsSubscribersToReadTheAddressesAgainUntilTheKernelAnswers)
{
    inNetworkNamespace([] {
        DispatchPool pool;
        const auto monitor = makeNetworkMonitor(pool);
        const auto queue = pool.makeQueue("test", QualityOfService::Utility);
        Counter counter;
        const auto subscription = monitor->subscribe(queue, [&] {
            monitor->addresses();
            counter.count();
        });
        {
            const DescriptorShortage shortage;
            const auto end = std::chrono::steady_clock::now() + kPatience;
            // However often the addresses are read meanwhile.
            while (!counter.waitFor(1, 5ms) && std::chrono::steady_clock::now() < end)
                monitor->addresses();
            ASSERT_TRUE(counter.waitFor(2));
        }
        ASSERT_TRUE(counter.waitFor(3));
        EXPECT_FALSE(counter.waitFor(4, 1500ms));
        pool.shutdown();
    });
}

TEST(NetlinkMonitor, closesItsSocketsWhenItGoes)
{
    DispatchPool pool;
    const auto before = openDescriptors();
    auto monitor = makeNetworkMonitor(pool);
    EXPECT_EQ(openDescriptors(), before + 2);
    monitor.reset();
    // One of the sockets is closed on a thread of the pool.
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (openDescriptors() != before && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    EXPECT_EQ(openDescriptors(), before);
}

TEST(NetlinkMonitor, callsOnTheGivenQueue)
{
    inNetworkNamespace([] {
        DispatchPool pool;
        const auto monitor = makeNetworkMonitor(pool);
        const auto queue = pool.makeQueue("test", QualityOfService::Utility);
        Counter counter;
        bool wasOnQueue = false;
        const auto subscription = monitor->subscribe(queue, [&] {
            wasOnQueue = queue->isCurrent();
            counter.count();
        });
        setLoopbackUp(true);
        ASSERT_TRUE(counter.waitFor(1));
        EXPECT_TRUE(wasOnQueue);
        pool.shutdown();
    });
}

TEST(NetlinkMonitor, isSilentAfterTheSubscriptionHasEnded)
{
    inNetworkNamespace([] {
        DispatchPool pool;
        const auto monitor = makeNetworkMonitor(pool);
        const auto queue = pool.makeQueue("test", QualityOfService::Utility);
        Counter ended;
        Counter standing;
        auto first = monitor->subscribe(queue, [&ended] { ended.count(); });
        const auto second = monitor->subscribe(queue, [&standing] { standing.count(); });
        first.reset();
        setLoopbackUp(true);
        ASSERT_TRUE(standing.waitFor(1));
        EXPECT_EQ(ended.calls(), 0);
        pool.shutdown();
    });
}

TEST(NetlinkMonitor, mayGoBeforeThePoolAndAfterIt)
{
    auto pool = std::make_unique<DispatchPool>();
    auto first = makeNetworkMonitor(*pool);
    const auto second = makeNetworkMonitor(*pool);
    first.reset();
    pool.reset();
    EXPECT_NO_THROW(second->addresses());
}

TEST(NetlinkSocket, isClosedInPrograms)
{
    std::error_code error;
    const auto socket = openRouteSocket(error);
    ASSERT_FALSE(error) << error.message();
    EXPECT_EQ(::fcntl(socket.get(), F_GETFD), FD_CLOEXEC);
}

TEST(NetlinkSocket, takesLostMessagesForAChange)
{
    inNetworkNamespace([] {
        std::error_code error;
        const auto socket = openRouteSocket(error);
        ASSERT_FALSE(error) << error.message();
        fillReceiveBuffer(socket.get());
        EXPECT_EQ(readRouteNews(socket.get()), RouteNews::Changed);
        int read = 0;
        while (readRouteNews(socket.get()) != RouteNews::None)
            ASSERT_LT(++read, 100000);
    });
}

TEST(NetlinkSocket, hasNoNewsWhileNothingChanges)
{
    inNetworkNamespace([] {
        std::error_code error;
        const auto socket = openRouteSocket(error);
        ASSERT_FALSE(error) << error.message();
        EXPECT_EQ(readRouteNews(socket.get()), RouteNews::None);
        setLoopbackUp(true);
        EXPECT_EQ(readRouteNews(socket.get()), RouteNews::Changed);
    });
}

TEST(NetlinkSocket, hasNewsOfARouteThatComesAndGoes)
{
    inNetworkNamespace([] {
        setLoopbackUp(true);
        std::error_code error;
        const auto socket = openRouteSocket(error);
        ASSERT_FALSE(error) << error.message();
        changeRoute(SIOCADDRT);
        EXPECT_EQ(readRouteNews(socket.get()), RouteNews::Changed);
        EXPECT_EQ(readRouteNews(socket.get()), RouteNews::None);
        changeRoute(SIOCDELRT);
        EXPECT_EQ(readRouteNews(socket.get()), RouteNews::Changed);
        EXPECT_EQ(readRouteNews(socket.get()), RouteNews::None);
    });
}

TEST(NetlinkSocket, hasNewsOfEachKindOfChange)
{
    inNetworkNamespace([] {
        ip("link add lan type veth peer name far");
        ip("link set lan up");
        ip("address add 192.0.2.7/24 dev lan");
        ip("address add 2001:db8::7/64 dev lan nodad noprefixroute");
        std::error_code error;
        const auto socket = openRouteSocket(error);
        ASSERT_FALSE(error) << error.message();
        // None of them changes anything else.
        for (const auto* change :
             {"link set lan mtu 1400",
              "address change 192.0.2.7/24 dev lan valid_lft 2000 preferred_lft 1000",
              "address change 2001:db8::7/64 dev lan nodad noprefixroute valid_lft 2000 "
              "preferred_lft 1000",
              "route add 198.51.100.0/24 dev lan", "route add 2001:db8:1::/64 dev lan"}) {
            while (readRouteNews(socket.get()) != RouteNews::None) {
            }
            ip(change);
            EXPECT_EQ(readRouteNews(socket.get()), RouteNews::Changed) << change;
        }
    });
}

TEST(NetlinkSocket, tellsMessagesAboutChangesFromOthers)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends.data()), 0);
    const auto newsOf = [&ends](const std::vector<unsigned short>& types) {
        std::vector<nlmsghdr> messages;
        for (const auto type : types) {
            messages.emplace_back();
            messages.back().nlmsg_len = sizeof(nlmsghdr);
            messages.back().nlmsg_type = type;
        }
        const auto size = messages.size() * sizeof(nlmsghdr);
        EXPECT_EQ(::send(ends[1], messages.data(), size, 0), static_cast<ssize_t>(size));
        return readRouteNews(ends[0]);
    };
    for (const unsigned short type :
         {RTM_NEWLINK, RTM_DELLINK, RTM_NEWADDR, RTM_DELADDR, RTM_NEWROUTE, RTM_DELROUTE})
        EXPECT_EQ(newsOf({type}), RouteNews::Changed) << type;
    EXPECT_EQ(newsOf({RTM_NEWNEIGH}), RouteNews::Other);
    EXPECT_EQ(newsOf({RTM_NEWNEIGH, NLMSG_NOOP, RTM_DELADDR}), RouteNews::Changed);
    EXPECT_EQ(readRouteNews(ends[0]), RouteNews::None);
    for (const int end : ends)
        closeDescriptor(end);
}

TEST(NetlinkSocket, isBrokenWhenItCannotBeRead)
{
    EXPECT_EQ(readRouteNews(-1), RouteNews::Broken);
}

} // namespace quillbox
