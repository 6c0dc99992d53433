#include "platform/dnssd/dns_sd_error.h"
#include "platform/dnssd/net_service.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_dns_sd.h"
#include "tests/fakes/socket_addresses.h"

#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using ResolveUpdate = DnsSd::ResolveUpdate;

const DnsSd::FoundAddress kIPv4{ipv4Address("10.0.0.7", 8443), 2};
const DnsSd::FoundAddress kIPv6{ipv6Address("fe80::7", 2, 8443), 2};

class NetServiceTest : public testing::Test {
protected:
    NetServiceTest()
    {
        netService->setHandlers([this] { ++resolved; }, [this] { ++notResolved; });
        onMain([this] { netService->resolve(6s); });
    }

    /// Runs `work` on the main queue, as a `NetService` requires.
    void onMain(const std::function<void()>& work)
    {
        dispatch.main().async(work);
        dispatch.runAll();
    }

    void tell(const ResolveUpdate& update)
    {
        ASSERT_EQ(dnsSd.resolutions().size(), 1U);
        dnsSd.resolutions().front().tell(update);
        dispatch.runAll();
    }

    FakeDispatch dispatch;
    FakeDnsSd dnsSd;
    const ServiceEndpoint service{"Quillbox", "_quillbox-admin._tcp", "local"};
    std::unique_ptr<NetService> netService = makeNetService(dnsSd, dispatch.mainQueue(), service);
    int resolved = 0;
    int notResolved = 0;
};

} // namespace

TEST_F(NetServiceTest, asksForItsService)
{
    ASSERT_EQ(dnsSd.resolutions().size(), 1U);
    EXPECT_EQ(dnsSd.resolutions().front().subject, service);
    EXPECT_EQ(dnsSd.resolutions().front().queue, dispatch.mainQueue());
}

TEST_F(NetServiceTest, reportsOnceBothFamiliesHaveAnswered)
{
    tell({{kIPv6}, false, true, {}});
    EXPECT_EQ(resolved, 0);
    tell({{kIPv6, kIPv4}, true, true, {}});
    EXPECT_EQ(resolved, 1);
    EXPECT_EQ(netService->addresses(), (std::vector<SocketAddress>{kIPv6.address, kIPv4.address}));
    EXPECT_EQ(netService->port(), 8443);
    EXPECT_TRUE(dnsSd.resolutions().empty());
    dispatch.advance(10s);
    EXPECT_EQ(resolved, 1);
    EXPECT_EQ(notResolved, 0);
}

TEST_F(NetServiceTest, startsOverWhenItResolvesAgain)
{
    tell({{kIPv6}, false, false, {}});
    onMain([this] { netService->resolve(6s); });
    dispatch.advance(6s);
    EXPECT_EQ(resolved, 0);
    EXPECT_EQ(notResolved, 1) << "what was found before does not count";

    onMain([this] { netService->resolve(6s); });
    tell({{kIPv6}, false, false, {}});
    onMain([this] { netService->resolve(6s); });
    tell({{kIPv6}, false, false, {}});
    dispatch.advance(500ms);
    EXPECT_EQ(resolved, 1) << "it does not wait longer for IPv4 than the first time";
}

TEST_F(NetServiceTest, waitsHalfASecondForIPv4)
{
    dispatch.advance(2s);
    tell({{kIPv6}, false, false, {}});
    dispatch.advance(499ms);
    EXPECT_EQ(resolved, 0);
    dispatch.advance(1ms);
    EXPECT_EQ(resolved, 1);
    EXPECT_EQ(netService->addresses(), std::vector<SocketAddress>{kIPv6.address});
}

TEST_F(NetServiceTest, doesNotWaitForIPv6)
{
    tell({{kIPv4}, false, false, {}});
    EXPECT_EQ(resolved, 1);
    EXPECT_EQ(netService->addresses(), std::vector<SocketAddress>{kIPv4.address});
}

TEST_F(NetServiceTest, givesASlowPhoneAllItsTime)
{
    tell({{}, true, true, {}});
    dispatch.advance(5900ms);
    EXPECT_EQ(notResolved, 0);
    tell({{kIPv4}, true, true, {}});
    EXPECT_EQ(resolved, 1);
}

TEST_F(NetServiceTest, doesNotResolveWhenItsTimeIsUp)
{
    dispatch.advance(5999ms);
    EXPECT_EQ(notResolved, 0);
    dispatch.advance(1ms);
    EXPECT_EQ(notResolved, 1);
    EXPECT_EQ(resolved, 0);
    EXPECT_TRUE(dnsSd.resolutions().empty());
    EXPECT_TRUE(netService->addresses().empty());
}

TEST_F(NetServiceTest, reportsWhatItHasWhenItsTimeIsUp)
{
    dispatch.advance(5800ms);
    tell({{kIPv6}, false, false, {}});
    dispatch.advance(200ms);
    EXPECT_EQ(resolved, 1);
    dispatch.advance(1s);
    EXPECT_EQ(resolved, 1);
    EXPECT_EQ(notResolved, 0);
}

TEST_F(NetServiceTest, goesOnWaitingWhenTheFirstAnswerIsTakenBack)
{
    tell({{kIPv6}, false, false, {}});
    tell({{}, false, false, {}});
    dispatch.advance(1s);
    EXPECT_EQ(resolved, 0);
    tell({{kIPv6}, false, false, {}});
    dispatch.advance(500ms);
    EXPECT_EQ(resolved, 1);
    EXPECT_EQ(netService->addresses(), std::vector<SocketAddress>{kIPv6.address});
}

TEST_F(NetServiceTest, outlastsAnEngineThatIsAway)
{
    tell({{}, false, false, DnsSdError::EngineUnavailable});
    dispatch.advance(2s);
    EXPECT_EQ(notResolved, 0);
    tell({{kIPv4}, true, true, {}});
    EXPECT_EQ(resolved, 1);
}

TEST_F(NetServiceTest, isSilentOnceStopped)
{
    dnsSd.resolutions().front().tell({{kIPv4}, true, true, {}});
    dispatch.main().async([this] { netService->stop(); });
    const FakeDnsSd::Resolution standing = dnsSd.resolutions().front();
    dispatch.main().runOne();
    EXPECT_EQ(resolved, 1) << "what came before the stop";

    onMain([this] { netService->resolve(6s); });
    onMain([this] {
        netService->stop();
        netService->stop();
    });
    standing.tell({{kIPv4}, true, true, {}});
    dispatch.advance(10s);
    EXPECT_EQ(resolved, 1);
    EXPECT_EQ(notResolved, 0);
}

TEST_F(NetServiceTest, mayBeDroppedByItsOwnHandler)
{
    netService->setHandlers(
        [this] {
            ++resolved;
            netService = nullptr;
        },
        nullptr);
    tell({{kIPv4}, true, true, {}});
    EXPECT_EQ(resolved, 1);
    dispatch.advance(10s);
}

TEST_F(NetServiceTest, mayBeDroppedWhileItResolves)
{
    const FakeDnsSd::Resolution standing = dnsSd.resolutions().front();
    netService = nullptr;
    EXPECT_TRUE(dnsSd.resolutions().empty());
    standing.tell({{kIPv4}, true, true, {}});
    dispatch.advance(10s);
    EXPECT_EQ(resolved + notResolved, 0);
}

TEST_F(NetServiceTest, resolvesAnewWhenAskedAgain)
{
    dispatch.advance(6s);
    EXPECT_EQ(notResolved, 1);
    onMain([this] { netService->resolve(1s); });
    tell({{kIPv4}, true, true, {}});
    EXPECT_EQ(resolved, 1);
}

TEST_F(NetServiceTest, keepsToThePortOfTheAddressThatIsUsedFirst)
{
    const DnsSd::FoundAddress other{ipv6Address("fe80::8", 2, 9999), 2};
    tell({{other, kIPv4, kIPv6}, true, true, {}});
    EXPECT_EQ(netService->port(), 8443);
    EXPECT_EQ(netService->addresses(), (std::vector<SocketAddress>{kIPv4.address, kIPv6.address}));
}

} // namespace quillbox
