#include "platform/netlink/netlink_monitor.h"
#include "platform/netlink/netlink_socket.h"
#include "tests/platform/netlink/network_namespace.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <iterator>
#include <memory>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>
#include <sys/resource.h>

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

/// While it exists, this process cannot open any file.
class DescriptorShortage final {
public:
    DescriptorShortage()
    {
        EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &usual_), 0);
        const rlimit none{.rlim_cur = 0, .rlim_max = usual_.rlim_max};
        EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    }
    ~DescriptorShortage() { EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &usual_), 0); }

    DescriptorShortage(const DescriptorShortage&) = delete;
    DescriptorShortage& operator=(const DescriptorShortage&) = delete;

private:
    rlimit usual_{};
};

} // namespace

TEST(NetlinkMonitor, tellsTheAddressesInTheOrderOfInterfaces)
{
    inNetworkNamespace([] {
        DispatchPool pool;
        const auto monitor = makeNetworkMonitor(pool);
        EXPECT_TRUE(monitor->addresses().empty());
        setLoopbackUp(true);
        const auto addresses = monitor->addresses();
        ASSERT_FALSE(addresses.empty());
        EXPECT_EQ(addresses.front().interfaceName, "lo");
        EXPECT_EQ(addresses.front().interfaceIndex, 1);
        EXPECT_TRUE(addresses.front().isLoopback);
        EXPECT_TRUE(
            std::is_sorted(addresses.begin(), addresses.end(), [](const auto& a, const auto& b) {
                return a.interfaceIndex < b.interfaceIndex;
            }));
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
        setLoopbackUp(true);
        setLoopbackUp(false);
        setLoopbackUp(true);
        ASSERT_TRUE(counter.waitFor(1));
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

TEST(NetlinkMonitor, closesItsSocketWhenItGoes)
{
    DispatchPool pool;
    const auto before = openDescriptors();
    auto monitor = makeNetworkMonitor(pool);
    EXPECT_EQ(openDescriptors(), before + 1);
    monitor.reset();
    // The socket is closed on a thread of the pool.
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

TEST(NetlinkSocket, takesLostMessagesForAChange)
{
    inNetworkNamespace([] {
        std::error_code error;
        const int socket = openRouteSocket(error);
        ASSERT_FALSE(error) << error.message();
        fillReceiveBuffer(socket);
        EXPECT_EQ(readRouteNews(socket), RouteNews::Changed);
        int read = 0;
        while (readRouteNews(socket) != RouteNews::None)
            ASSERT_LT(++read, 100000);
        closeDescriptor(socket);
    });
}

TEST(NetlinkSocket, hasNoNewsWhileNothingChanges)
{
    inNetworkNamespace([] {
        std::error_code error;
        const int socket = openRouteSocket(error);
        ASSERT_FALSE(error) << error.message();
        EXPECT_EQ(readRouteNews(socket), RouteNews::None);
        setLoopbackUp(true);
        EXPECT_EQ(readRouteNews(socket), RouteNews::Changed);
        closeDescriptor(socket);
    });
}

TEST(NetlinkSocket, hasNewsOfARouteThatComesAndGoes)
{
    inNetworkNamespace([] {
        setLoopbackUp(true);
        std::error_code error;
        const int socket = openRouteSocket(error);
        ASSERT_FALSE(error) << error.message();
        changeRoute(SIOCADDRT);
        EXPECT_EQ(readRouteNews(socket), RouteNews::Changed);
        EXPECT_EQ(readRouteNews(socket), RouteNews::None);
        changeRoute(SIOCDELRT);
        EXPECT_EQ(readRouteNews(socket), RouteNews::Changed);
        EXPECT_EQ(readRouteNews(socket), RouteNews::None);
        closeDescriptor(socket);
    });
}

TEST(NetlinkSocket, isBrokenWhenItCannotBeRead)
{
    EXPECT_EQ(readRouteNews(-1), RouteNews::Broken);
}

} // namespace quillbox
