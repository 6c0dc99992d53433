#include "discovery/management_resolver.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_network.h"
#include "tests/fakes/socket_addresses.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillbox {
namespace {

using namespace std::chrono_literals;
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
    ManagementResolverTest() { resolver->start(); }

    std::shared_ptr<ManagementResolver> resolverFor(const Endpoint& endpoint)
    {
        return std::make_shared<ManagementResolver>(
            dispatch, network, endpoint, [this](const std::optional<std::string>& url) {
                results.push_back(url);
                wasEnded = network.dnsSd().resolutions().empty() || resolution().isEnded();
            });
    }

    FakeDnsSd::Resolution resolution() { return network.dnsSd().resolutions().back(); }

    void finish(const std::vector<SocketAddress>& addresses, std::uint16_t port = 443)
    {
        std::vector<DnsSd::FoundAddress> withItsPort;
        for (const SocketAddress& each : addresses)
            withItsPort.push_back({withPort(each, port), 0});
        resolution().tell(found(std::move(withItsPort)));
        dispatch.runAll();
    }

    /// Tells the addresses that are found before both address families are settled.
    void tell(std::vector<DnsSd::FoundAddress> addresses)
    {
        resolution().tell({.addresses = std::move(addresses)});
        dispatch.runAll();
    }

    const DnsSd::FoundAddress kIPv4{ipv4Address("192.0.2.7", 8443), 2};
    const DnsSd::FoundAddress kIPv6{ipv6Address("2001:db8::7", 0, 8443), 2};

    FakeDispatch dispatch;
    FakeNetwork network;
    std::vector<std::optional<std::string>> results;
    bool wasEnded = false; ///< whether the resolution had ended at the last result
    std::shared_ptr<ManagementResolver> resolver = resolverFor(kAdmin);
};

TEST_F(ManagementResolverTest, resolvesTheServiceOnTheMainQueue)
{
    EXPECT_EQ(network.dnsSd().resolutions().size(), 1U);
    EXPECT_EQ(resolution().request, kAdmin);
    EXPECT_EQ(resolution().queue, dispatch.mainQueue());
    EXPECT_THAT(results, IsEmpty());
}

TEST_F(ManagementResolverTest, makesAnHttpsUrlOfAddressAndPort)
{
    finish({ipv4Address("192.0.2.7")}, 8443);
    EXPECT_THAT(results, ElementsAre("https://192.0.2.7:8443/"));
    EXPECT_TRUE(wasEnded);
}

TEST_F(ManagementResolverTest, usesThePortOfTheAddressWhenTheRecordsDisagree)
{
    resolution().tell({.addresses = {{ipv6Address("2001:db8::8", 0, 9999), 2}, kIPv4, kIPv6}});
    dispatch.runAll();
    EXPECT_THAT(results, ElementsAre("https://192.0.2.7:8443/"));
}

TEST_F(ManagementResolverTest, triesIPv4AddressesBeforeAllOthers)
{
    finish({ipv6Address("2001:db8::1"), ipv4Address("192.0.2.1"), ipv6Address("2001:db8::2"),
            ipv4Address("192.0.2.2")});
    EXPECT_THAT(results, ElementsAre("https://192.0.2.1:443/"));
}

TEST_F(ManagementResolverTest, triesTheSecondIPv4AddressBeforeTheFirstIPv6Address)
{
    finish({ipv6Address("2001:db8::1"), cutShort(ipv4Address("192.0.2.1")),
            ipv6Address("2001:db8::2"), ipv4Address("192.0.2.2")});
    EXPECT_THAT(results, ElementsAre("https://192.0.2.2:443/"));
}

TEST_F(ManagementResolverTest, triesIPv6AddressesInTheirOrderWhenNoIPv4AddressWorks)
{
    finish({ipv6Address("2001:db8::1"), cutShort(ipv4Address("192.0.2.1")),
            ipv6Address("2001:db8::2"), cutShort(ipv4Address("192.0.2.2"))});
    EXPECT_THAT(results, ElementsAre("https://[2001:db8::1]:443/"));
}

TEST_F(ManagementResolverTest, triesTheSecondIPv6AddressLast)
{
    finish({cutShort(ipv6Address("2001:db8::1")), cutShort(ipv4Address("192.0.2.1")),
            ipv6Address("2001:db8::2")});
    EXPECT_THAT(results, ElementsAre("https://[2001:db8::2]:443/"));
}

TEST_F(ManagementResolverTest, skipsAddressesThatHaveNoNumericForm)
{
    finish({{}, cutShort(ipv4Address("192.0.2.1")), ipv6Address("2001:db8::2")});
    EXPECT_THAT(results, ElementsAre("https://[2001:db8::2]:443/"));
}

TEST_F(ManagementResolverTest, reportsNoneWhenNoAddressHasANumericForm)
{
    finish({{}, cutShort(ipv4Address("192.0.2.1"))});
    EXPECT_THAT(results, ElementsAre(std::nullopt));
}

TEST_F(ManagementResolverTest, reportsNoneWhenSixSecondsAreOver)
{
    dispatch.advance(5999ms);
    EXPECT_THAT(results, IsEmpty());
    dispatch.advance(1ms);
    EXPECT_THAT(results, ElementsAre(std::nullopt));
    EXPECT_TRUE(wasEnded);
}

TEST_F(ManagementResolverTest, givesASlowPhoneAllItsTime)
{
    finish({});
    dispatch.advance(5900ms);
    EXPECT_THAT(results, IsEmpty());
    tell({kIPv4});
    EXPECT_EQ(results.size(), 1U);
}

TEST_F(ManagementResolverTest, outlastsAnEngineThatIsAway)
{
    resolution().tell({.error = std::make_error_code(std::errc::network_down)});
    dispatch.advance(2s);
    EXPECT_THAT(results, IsEmpty());
    tell({kIPv4});
    EXPECT_EQ(results.size(), 1U);
}

TEST_F(ManagementResolverTest, doesNotWaitForIPv6)
{
    tell({kIPv6, kIPv4});
    EXPECT_THAT(results, ElementsAre("https://192.0.2.7:8443/"));
}

TEST_F(ManagementResolverTest, waitsHalfASecondForIPv4)
{
    dispatch.advance(2s);
    tell({kIPv6});
    dispatch.advance(499ms);
    EXPECT_THAT(results, IsEmpty());
    dispatch.advance(1ms);
    EXPECT_THAT(results, ElementsAre("https://[2001:db8::7]:8443/"));
}

TEST_F(ManagementResolverTest, waitsForIPv4UntilBothFamiliesAreSettled)
{
    resolution().tell({.addresses = {kIPv6}, .isSettledIPv6 = true});
    dispatch.runAll();
    EXPECT_THAT(results, IsEmpty());
    resolution().tell({.addresses = {kIPv6}, .isSettledIPv4 = true, .isSettledIPv6 = true});
    dispatch.runAll();
    EXPECT_THAT(results, ElementsAre("https://[2001:db8::7]:8443/"));
}

TEST_F(ManagementResolverTest, goesOnWaitingWhenTheFirstAnswerIsTakenBack)
{
    tell({kIPv6});
    tell({});
    dispatch.advance(1s);
    EXPECT_THAT(results, IsEmpty());
    tell({kIPv6});
    dispatch.advance(500ms);
    EXPECT_THAT(results, ElementsAre("https://[2001:db8::7]:8443/"));
}

TEST_F(ManagementResolverTest, reportsNoneWhenTheOnlyAnswerIsTakenBack)
{
    tell({kIPv6});
    tell({});
    dispatch.advance(6s);
    EXPECT_THAT(results, ElementsAre(std::nullopt));
}

TEST_F(ManagementResolverTest, reportsWhatItHasWhenItsTimeIsUp)
{
    dispatch.advance(5800ms);
    tell({kIPv6});
    dispatch.advance(200ms);
    EXPECT_THAT(results, ElementsAre("https://[2001:db8::7]:8443/"));
}

TEST_F(ManagementResolverTest, reportsOnce)
{
    tell({kIPv6});
    resolution().tell({.addresses = {kIPv4}});
    resolution().tell({.addresses = {kIPv4, kIPv6}});
    dispatch.advance(10s);
    EXPECT_THAT(results, ElementsAre("https://192.0.2.7:8443/"));
}

TEST_F(ManagementResolverTest, reportsAFailureOnceThoughAnAddressIsFoundLater)
{
    dispatch.advance(6s);
    tell({kIPv4});
    EXPECT_THAT(results, ElementsAre(std::nullopt));
}

TEST_F(ManagementResolverTest, reportsNoneAtOnceForAnEndpointThatIsNoService)
{
    const auto other = resolverFor(HostEndpoint{"192.0.2.7", 443});
    EXPECT_THAT(results, IsEmpty());
    other->start();
    EXPECT_THAT(results, ElementsAre(std::nullopt));
    EXPECT_EQ(network.dnsSd().resolutions().size(), 1U);
}

TEST_F(ManagementResolverTest, reportsNothingAfterItIsCancelled)
{
    resolution().tell({.addresses = {kIPv4}});
    resolver->cancel();
    EXPECT_TRUE(resolution().isEnded());
    dispatch.advance(10s);
    EXPECT_THAT(results, IsEmpty());
}

TEST_F(ManagementResolverTest, endsTheResolutionWhenItIsDropped)
{
    resolution().tell({.addresses = {kIPv4}});
    resolver = nullptr;
    EXPECT_TRUE(resolution().isEnded());
    dispatch.advance(10s);
    EXPECT_THAT(results, IsEmpty());
}

TEST_F(ManagementResolverTest, cancelsWithoutHavingStarted)
{
    resolverFor(kAdmin)->cancel();
    EXPECT_THAT(results, IsEmpty());
}

TEST_F(ManagementResolverTest, mayBeDroppedFromItsOwnReport)
{
    resolver->cancel(); // a query for the same service
    enum class Case { Resolved, Failed, NoService };
    for (const auto each : {Case::Resolved, Case::Failed, Case::NoService}) {
        std::shared_ptr<ManagementResolver> owned;
        bool wasKept = false;
        auto token = std::make_shared<int>(0);
        const std::weak_ptr<int> own = token;
        owned = std::make_shared<ManagementResolver>(
            dispatch, network,
            each == Case::NoService ? Endpoint(HostEndpoint{"192.0.2.7", 443}) : kAdmin,
            [&, token = std::move(token)](const auto& /*url*/) {
                // In case the callback's own references to them go.
                auto& kept = wasKept;
                const auto& callback = own;
                owned.reset();
                kept = !callback.expired();
            });
        owned->start();
        if (each == Case::Resolved)
            resolution().tell(found({kIPv4}));
        dispatch.advance(6s);
        EXPECT_EQ(owned, nullptr);
        EXPECT_TRUE(wasKept);
    }
}

} // namespace
} // namespace quillbox
