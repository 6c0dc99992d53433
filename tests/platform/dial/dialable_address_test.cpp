#include "platform/dial/dialable_address.h"
#include "tests/fakes/socket_addresses.h"

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

constexpr std::uint16_t kPort = 4445;

SocketAddress address(const std::string& text, std::uint16_t port = kPort, std::uint32_t scope = 0)
{
    return text.find(':') == std::string::npos ? ipv4Address(text, port)
                                               : ipv6Address(text, scope, port);
}

constexpr int kWlan = 2;
constexpr int kEthernet = 3;

/// The port of a listener of this program.
constexpr std::uint16_t kOwnPort = 4446;

/// Which links lead to an address.
class ScriptedRoutes final : public NetworkMonitor {
public:
    std::vector<InterfaceAddress> addresses() const override
    {
        return {own("127.0.0.1", kLoopbackInterface), own("::1", kLoopbackInterface),
                own("192.0.2.7", kWlan), own("2001:db8::7", kWlan), own("fe80::7", kWlan, kWlan)};
    }

    OutgoingRoute routeThrough(int interfaceIndex, const SocketAddress& /*address*/) const override
    {
        const auto found = routes.find(interfaceIndex);
        return found == routes.end() ? OutgoingRoute::None : found->second;
    }

    std::unique_ptr<Subscription> subscribe(std::shared_ptr<DispatchQueue> /*queue*/,
                                            std::function<void()> /*changed*/) override
    {
        return nullptr;
    }

    std::map<int, OutgoingRoute> routes;

private:
    static InterfaceAddress own(const std::string& text, int index, std::uint32_t scope = 0)
    {
        return {.interfaceIndex = index,
                .interfaceName = index == kLoopbackInterface ? "lo" : "wlan0",
                .isLoopback = index == kLoopbackInterface,
                .address = address(text, 0, scope)};
    }
};

} // namespace

class MayDial : public testing::Test {
protected:
    DialPermission ask(const SocketAddress& wanted, std::set<int> interfaces) const
    {
        return mayDial({.address = wanted, .interfaces = std::move(interfaces)}, ownPorts, network);
    }

    bool isFree(const SocketAddress& wanted, std::set<int> interfaces) const
    {
        return ask(wanted, std::move(interfaces)) == DialPermission();
    }

    OwnPorts ownPorts;
    const std::shared_ptr<void> ownPort = ownPorts.add(kOwnPort);
    ScriptedRoutes network;
};

struct Case {
    const char* text;
    bool isFromNetwork;  ///< whether it is dialled if it is in a record from the network
    bool isFromLoopback; ///< ... in a record that arrived on the loopback interface
};

class MayDialAddress : public MayDial, public testing::WithParamInterface<Case> {};

TEST_P(MayDialAddress, dependsOnWhereItWasFound)
{
    network.routes[kWlan] = OutgoingRoute::Preferred;
    const auto& [text, isFromNetwork, isFromLoopback] = GetParam();
    EXPECT_EQ(isFree(address(text), {kWlan}), isFromNetwork);
    EXPECT_EQ(isFree(address(text), {kLoopbackInterface}), isFromLoopback);
    EXPECT_TRUE(isFree(address(text), {}));
    // DNS-SD addresses need a port; typed ones are not restricted.
    EXPECT_FALSE(ask(address(text, 0), {kWlan}));
    EXPECT_FALSE(ask(address(text, 0), {kLoopbackInterface}));
    EXPECT_TRUE(isFree(address(text, 0), {}));
}

INSTANTIATE_TEST_SUITE_P(
    Matrix, MayDialAddress,
    testing::Values(Case{"192.0.2.1", true, true}, Case{"10.0.0.1", true, true},
                    Case{"169.254.3.4", true, true}, Case{"fe80::1", true, true},
                    Case{"2001:db8::1", true, true}, Case{"fd00::1", true, true},
                    Case{"::ffff:192.0.2.1", false, true}, Case{"0.0.0.0", false, false},
                    Case{"0.1.2.3", false, false}, Case{"::", false, false},
                    Case{"::ffff:0.0.0.0", false, false}, Case{"224.0.0.251", false, false},
                    Case{"239.255.255.250", false, false}, Case{"ff02::fb", false, false},
                    Case{"::ffff:224.0.0.1", false, false}, Case{"255.255.255.255", false, false},
                    Case{"::ffff:255.255.255.255", false, false}, Case{"127.0.0.1", false, true},
                    Case{"127.255.255.254", false, true}, Case{"::1", false, true},
                    Case{"::ffff:127.0.0.1", false, true}));

TEST_F(MayDial, refusesWhatDoesNotLeaveThroughTheInterfaceOfTheRecord)
{
    network.routes[kEthernet] = OutgoingRoute::Preferred;
    EXPECT_FALSE(ask(address("192.0.2.1"), {kWlan}));
    EXPECT_TRUE(isFree(address("192.0.2.1"), {kEthernet}));
}

TEST_F(MayDial, bindsTheSocketWhereTheKernelWouldTakeAnotherInterface)
{
    network.routes[kWlan] = OutgoingRoute::IfBound;
    EXPECT_EQ(ask(address("192.0.2.1"), {kWlan}), (DialPermission{.bindTo = kWlan, .refusal = {}}));
    network.routes[kEthernet] = OutgoingRoute::Preferred;
    EXPECT_TRUE(isFree(address("192.0.2.1"), {kWlan, kEthernet}));
}

TEST_F(MayDial, tellsARouteThatCannotBeLookedUpFromNone)
{
    network.routes[kWlan] = OutgoingRoute::Unknown;
    EXPECT_EQ(ask(address("192.0.2.1"), {kEthernet}).refusal, std::errc::address_not_available);
    EXPECT_EQ(ask(address("192.0.2.1"), {kWlan}).refusal, std::errc::no_buffer_space);
    EXPECT_EQ(ask(address("192.0.2.1"), {kWlan, kEthernet}).refusal, std::errc::no_buffer_space);
    network.routes[kEthernet] = OutgoingRoute::IfBound;
    EXPECT_EQ(ask(address("192.0.2.1"), {kWlan, kEthernet}),
              (DialPermission{.bindTo = kEthernet, .refusal = {}}));
    network.routes[kEthernet] = OutgoingRoute::Unknown;
    network.routes[kWlan] = OutgoingRoute::IfBound;
    EXPECT_EQ(ask(address("192.0.2.1"), {kWlan, kEthernet}),
              (DialPermission{.bindTo = kWlan, .refusal = {}}));
}

TEST_F(MayDial, refusesOwnListenersWhereverTheAddressComesFrom)
{
    network.routes[kWlan] = OutgoingRoute::Preferred;
    for (const auto* text : {"192.0.2.7", "2001:db8::7", "::ffff:192.0.2.7", "127.0.0.1",
                             "127.4.5.6", "::1", "::ffff:127.0.0.1", "0.0.0.0", "::"}) {
        for (const auto& interfaces :
             {std::set<int>(), std::set{kWlan}, std::set{kLoopbackInterface}})
            EXPECT_FALSE(ask(address(text, kOwnPort), interfaces)) << text;
    }
    EXPECT_TRUE(isFree(address("192.0.2.1", kOwnPort), {kWlan})) << "of another computer";
}

TEST_F(MayDial, tellsEqualLinkLocalAddressesOnTwoLinksApart)
{
    network.routes[kWlan] = network.routes[kEthernet] = OutgoingRoute::Preferred;
    EXPECT_FALSE(ask(address("fe80::7", kOwnPort, kWlan), {kWlan}));
    EXPECT_TRUE(isFree(address("fe80::7", kOwnPort, kEthernet), {kEthernet}));
    EXPECT_FALSE(ask(address("fe80::7", kOwnPort, 0), {kWlan}));
}

TEST_F(MayDial, comparesScopesOnlyWhereBothAreKnown)
{
    const auto there = address("fe80::7", 445, kWlan);
    EXPECT_TRUE(isSameHost(there, address("fe80::7", 4445, kWlan)));
    EXPECT_FALSE(isSameHost(there, address("fe80::7", 445, kEthernet)));
    EXPECT_TRUE(isSameHost(there, address("fe80::7", 445, 0)));
    EXPECT_TRUE(isSameHost(address("fe80::7", 445, 0), there));
}

TEST_F(MayDial, refusesWhatIsNoAddress)
{
    network.routes[kWlan] = OutgoingRoute::Preferred;
    EXPECT_FALSE(ask({}, {}));
    EXPECT_FALSE(ask({}, {kWlan}));
}

TEST_F(MayDial, keepsOneCandidateForAnAddressSeenOnTwoInterfaces)
{
    std::vector<Candidate> candidates;
    addCandidate(candidates, address("192.0.2.1"), kEthernet);
    addCandidate(candidates, address("192.0.2.2"), kWlan);
    addCandidate(candidates, address("192.0.2.1"), kWlan);
    addCandidate(candidates, address("192.0.2.1"), kEthernet);
    const std::vector<Candidate> expected{
        {.address = address("192.0.2.1"), .interfaces = {kWlan, kEthernet}},
        {.address = address("192.0.2.2"), .interfaces = {kWlan}}};
    EXPECT_EQ(candidates, expected);
}

TEST_F(MayDial, knowsTheAddressesOfThisComputer)
{
    const auto own = network.addresses();
    for (const auto* text :
         {"192.0.2.7", "2001:db8::7", "::ffff:192.0.2.7", "127.4.5.6", "::1", "0.0.0.0", "::"})
        EXPECT_TRUE(isOfThisComputer(address(text), own)) << text;
    for (const auto* text : {"192.0.2.1", "2001:db8::1", "10.0.0.1"})
        EXPECT_FALSE(isOfThisComputer(address(text), own)) << text;
    EXPECT_FALSE(isOfThisComputer({}, own));
}

} // namespace quillbox
