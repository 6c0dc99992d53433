#include "discovery/management_resolver.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_network.h"
#include "tests/fakes/socket_addresses.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillbox {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const ServiceEndpoint kAdmin{
    .name = "Quillbox Office", .type = "_quillbox-admin._tcp", .domain = "local"};

/// What is left of an address without its end: it has no numeric form.
SocketAddress cutShort(const SocketAddress& address)
{
    return {address.data(), address.size() / 2};
}

class ManagementResolverTest : public testing::Test {
protected:
    std::shared_ptr<ManagementResolver> resolverFor(const Endpoint& endpoint)
    {
        return std::make_shared<ManagementResolver>(
            network, endpoint, [this](const std::optional<std::string>& url) {
                results.push_back(url);
                if (!network.netServices.empty())
                    wasDetached = service().stops == 1 && !service().hasHandlers;
            });
    }

    FakeNetService::Record& service() { return *network.netServices.back(); }

    FakeDispatch dispatch;
    FakeNetwork network{dispatch};
    std::vector<std::optional<std::string>> results;
    bool wasDetached = false; ///< whether the last result came from a stopped service
    std::shared_ptr<ManagementResolver> resolver = resolverFor(kAdmin);
};

TEST_F(ManagementResolverTest, resolvesTheServiceForSixSeconds)
{
    EXPECT_FALSE(service().timeout.has_value());
    resolver->start();
    EXPECT_EQ(service().service, kAdmin);
    EXPECT_EQ(service().timeout, std::chrono::seconds(6));
    EXPECT_THAT(results, IsEmpty());
}

TEST_F(ManagementResolverTest, makesAnHttpsUrlOfAddressAndPort)
{
    resolver->start();
    service().object->finish({ipv4Address("192.0.2.7")}, 8443);
    dispatch.runAll();
    EXPECT_THAT(results, ElementsAre("https://192.0.2.7:8443/"));
    EXPECT_GE(service().stops, 1);
}

TEST_F(ManagementResolverTest, triesIPv4AddressesBeforeAllOthers)
{
    resolver->start();
    service().object->finish({ipv6Address("2001:db8::1"), ipv4Address("192.0.2.1"),
                              ipv6Address("2001:db8::2"), ipv4Address("192.0.2.2")},
                             443);
    dispatch.runAll();
    EXPECT_THAT(results, ElementsAre("https://192.0.2.1:443/"));
}

TEST_F(ManagementResolverTest, triesTheSecondIPv4AddressBeforeTheFirstIPv6Address)
{
    resolver->start();
    service().object->finish({ipv6Address("2001:db8::1"), cutShort(ipv4Address("192.0.2.1")),
                              ipv6Address("2001:db8::2"), ipv4Address("192.0.2.2")},
                             443);
    dispatch.runAll();
    EXPECT_THAT(results, ElementsAre("https://192.0.2.2:443/"));
}

TEST_F(ManagementResolverTest, triesIPv6AddressesInTheirOrderWhenNoIPv4AddressWorks)
{
    resolver->start();
    service().object->finish({ipv6Address("2001:db8::1"), cutShort(ipv4Address("192.0.2.1")),
                              ipv6Address("2001:db8::2"), cutShort(ipv4Address("192.0.2.2"))},
                             443);
    dispatch.runAll();
    EXPECT_THAT(results, ElementsAre("https://[2001:db8::1]:443/"));
}

TEST_F(ManagementResolverTest, triesTheSecondIPv6AddressLast)
{
    resolver->start();
    service().object->finish({cutShort(ipv6Address("2001:db8::1")),
                              cutShort(ipv4Address("192.0.2.1")), ipv6Address("2001:db8::2")},
                             443);
    dispatch.runAll();
    EXPECT_THAT(results, ElementsAre("https://[2001:db8::2]:443/"));
}

TEST_F(ManagementResolverTest, skipsAddressesThatHaveNoNumericForm)
{
    resolver->start();
    service().object->finish({{}, cutShort(ipv4Address("192.0.2.1")), ipv6Address("2001:db8::2")},
                             443);
    dispatch.runAll();
    EXPECT_THAT(results, ElementsAre("https://[2001:db8::2]:443/"));
}

TEST_F(ManagementResolverTest, reportsNoneWithoutAnyAddress)
{
    resolver->start();
    service().object->finish({}, 443);
    dispatch.runAll();
    EXPECT_THAT(results, ElementsAre(std::nullopt));
}

TEST_F(ManagementResolverTest, reportsNoneWhenNoAddressHasANumericForm)
{
    resolver->start();
    service().object->finish({{}, cutShort(ipv4Address("192.0.2.1"))}, 443);
    dispatch.runAll();
    EXPECT_THAT(results, ElementsAre(std::nullopt));
}

TEST_F(ManagementResolverTest, reportsNoneWhenTheTimeRunsOut)
{
    resolver->start();
    service().object->fail();
    dispatch.runAll();
    EXPECT_THAT(results, ElementsAre(std::nullopt));
    EXPECT_GE(service().stops, 1);
}

TEST_F(ManagementResolverTest, reportsNoneAtOnceForAnEndpointThatIsNoService)
{
    const auto other = resolverFor(HostEndpoint{"192.0.2.7", 443});
    EXPECT_THAT(results, IsEmpty());
    other->start();
    EXPECT_THAT(results, ElementsAre(std::nullopt));
    EXPECT_EQ(network.netServices.size(), 1U);
}

TEST_F(ManagementResolverTest, reportsOnceThoughTheServiceReportsTwice)
{
    resolver->start();
    service().object->finish({ipv4Address("192.0.2.7")}, 443);
    service().object->fail();
    dispatch.runAll();
    EXPECT_THAT(results, ElementsAre("https://192.0.2.7:443/"));
}

TEST_F(ManagementResolverTest, reportsAFailureOnceThoughTheServiceResolvesLater)
{
    resolver->start();
    service().object->fail();
    service().object->finish({ipv4Address("192.0.2.7")}, 443);
    dispatch.runAll();
    EXPECT_THAT(results, ElementsAre(std::nullopt));
}

TEST_F(ManagementResolverTest, detachesFromTheServiceBeforeItReports)
{
    resolver->start();
    EXPECT_TRUE(service().hasHandlers);
    service().object->finish({ipv4Address("192.0.2.7")}, 443);
    dispatch.runAll();
    EXPECT_TRUE(wasDetached);
}

TEST_F(ManagementResolverTest, detachesFromTheServiceBeforeItReportsAFailure)
{
    resolver->start();
    service().object->fail();
    dispatch.runAll();
    EXPECT_TRUE(wasDetached);
}

TEST_F(ManagementResolverTest, reportsNothingAfterItIsCancelled)
{
    resolver->start();
    service().object->finish({ipv4Address("192.0.2.7")}, 443);
    service().object->fail();
    resolver->cancel();
    EXPECT_EQ(service().stops, 1);
    EXPECT_FALSE(service().hasHandlers);
    dispatch.runAll();
    EXPECT_THAT(results, IsEmpty());
}

TEST_F(ManagementResolverTest, cancelsWithoutAServiceToStop)
{
    const auto other = resolverFor(HostEndpoint{"192.0.2.7", 443});
    other->cancel();
    EXPECT_THAT(results, IsEmpty());
}

TEST_F(ManagementResolverTest, mayBeDroppedFromItsOwnReport)
{
    enum class Case { Resolved, Failed, NoService };
    for (const auto each : {Case::Resolved, Case::Failed, Case::NoService}) {
        std::shared_ptr<ManagementResolver> owned;
        bool wasKept = false;
        auto token = std::make_shared<int>(0);
        const std::weak_ptr<int> own = token;
        owned = std::make_shared<ManagementResolver>(
            network, each == Case::NoService ? Endpoint(HostEndpoint{"192.0.2.7", 443}) : kAdmin,
            [&, token = std::move(token)](const auto& /*url*/) {
                // In case the callback's own references to them go.
                auto& kept = wasKept;
                const auto& callback = own;
                owned.reset();
                kept = !callback.expired();
            });
        owned->start();
        if (each == Case::Resolved)
            service().object->finish({ipv4Address("192.0.2.7")}, 443);
        else if (each == Case::Failed)
            service().object->fail();
        dispatch.runAll();
        EXPECT_EQ(owned, nullptr);
        EXPECT_TRUE(wasKept);
    }
}

} // namespace
} // namespace quillbox
