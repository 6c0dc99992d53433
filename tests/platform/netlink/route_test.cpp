#include "platform/netlink/netlink_monitor.h"
#include "platform/netlink/netlink_socket.h"
#include "tests/fakes/descriptor_shortage.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/netlink/network_namespace.h"

#include <cstdint>
#include <memory>
#include <string>
#include <system_error>
#include <thread>

#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>

namespace quillbox {

namespace {

/// A computer in a local network, with a second interface in the same network, and with a network
/// behind it.
class Computer final {
public:
    Computer()
    {
        ip("link set lo up");
        for (const std::string name : {"lan", "wlan", "bridge"}) {
            ip("link add " + name + " type veth peer name " + name + "-far");
            ip("link set " + name + "-far up");
            ip("link set " + name + " up");
        }
        ip("address add 192.0.2.7/24 dev lan");
        ip("address add 2001:db8::7/64 dev lan nodad");
        ip("address add fe80::7/64 dev lan nodad");
        ip("route replace fe80::/64 dev lan");
        ip("route add 192.0.2.0/24 dev wlan metric 600");
        ip("route add 2001:db8::/64 dev wlan metric 600");
        ip("address add 172.17.0.1/16 dev bridge");
        ip("address add fd00:17::1/64 dev bridge nodad");
        ip("route add default via 192.0.2.1 dev lan");
        // The kernel adds these itself, but later.
        ip("-6 route replace local 2001:db8::7 dev lan table local");
        ip("-6 route replace local fe80::7 dev lan table local");
        ip("-6 route replace local fd00:17::1 dev bridge table local");
    }

    OutgoingRoute route(const std::string& text, const char* interface)
    {
        const auto index = ::if_nametoindex(interface);
        const bool isIPv6 = text.find(':') != std::string::npos;
        return monitor->routeThrough(
            static_cast<int>(index),
            isIPv6 ? ipv6Address(text, text.starts_with("fe80") ? index : 0) : ipv4Address(text));
    }

    DispatchPool pool;
    const std::unique_ptr<NetworkMonitor> monitor = makeNetworkMonitor(pool);
};

} // namespace

TEST(Route, leavesThroughTheInterfaceThatTheKernelChooses)
{
    inNetworkNamespace([] {
        Computer computer;
        for (const auto* text : {"192.0.2.1", "2001:db8::1", "fe80::1", "198.51.100.1"})
            EXPECT_EQ(computer.route(text, "lan"), OutgoingRoute::Preferred) << text;
        ip("route delete 192.0.2.0/24 dev lan");
        EXPECT_EQ(computer.route("192.0.2.1", "wlan"), OutgoingRoute::Preferred) << "as it is now";
    });
}

TEST(Route, leavesThroughAnotherInterfaceOfTheNetworkForABoundSocketOnly)
{
    inNetworkNamespace([] {
        Computer computer;
        EXPECT_EQ(computer.route("192.0.2.1", "wlan"), OutgoingRoute::IfBound);
        EXPECT_EQ(computer.route("2001:db8::1", "wlan"), OutgoingRoute::IfBound);
    });
}

TEST(Route, toThisComputerLeavesThroughNoInterface)
{
    inNetworkNamespace([] {
        Computer computer;
        EXPECT_EQ(computer.route("fe80::7", "lan"), OutgoingRoute::None);
        // The kernel adds such a route itself, but later.
        ip("route replace fe80::/64 dev wlan");
        EXPECT_EQ(computer.route("fe80::7", "wlan"), OutgoingRoute::Preferred) << "another host";
        for (const auto* text : {"192.0.2.7", "2001:db8::7", "172.17.0.1", "fd00:17::1",
                                 "127.0.0.1", "127.4.5.6", "::1"}) {
            for (const auto* interface : {"lan", "wlan", "bridge", "lo"})
                EXPECT_EQ(computer.route(text, interface), OutgoingRoute::None)
                    << text << " through " << interface;
        }
    });
}

TEST(Route, toSeveralHostsOrToNoneIsNoRoute)
{
    inNetworkNamespace([] {
        Computer computer;
        for (const auto* text : {"224.0.0.251", "192.0.2.255", "255.255.255.255", "fd00:99::1"})
            EXPECT_EQ(computer.route(text, "lan"), OutgoingRoute::None) << text;
        ip("route add blackhole 203.0.113.0/24");
        EXPECT_EQ(computer.route("203.0.113.1", "lan"), OutgoingRoute::None);
    });
}

TEST(Route, throughAnotherInterfaceIsNoneOfAHostBehindThisComputer)
{
    inNetworkNamespace([] {
        Computer computer;
        EXPECT_EQ(computer.route("172.17.0.2", "bridge"), OutgoingRoute::Preferred);
        EXPECT_EQ(computer.route("fd00:17::2", "bridge"), OutgoingRoute::Preferred);
        EXPECT_EQ(computer.route("fd00:17::2", "lan"), OutgoingRoute::None);
        // Bound to this interface, the socket asks the router there, never the host behind.
        EXPECT_EQ(computer.route("172.17.0.2", "lan"), OutgoingRoute::IfBound);
    });
}

TEST(Route, followsRulesForTcpAndForThePort)
{
    inNetworkNamespace([] {
        Computer computer;
        const auto bridge = static_cast<int>(::if_nametoindex("bridge"));
        const auto expectThroughBridge = [&](bool expected, std::uint16_t port) {
            for (const auto& address :
                 {ipv4Address("192.0.2.1", port), ipv6Address("2001:db8::1", 0, port)})
                EXPECT_EQ(computer.monitor->routeThrough(bridge, address)
                              == OutgoingRoute::Preferred,
                          expected)
                    << port << (address.size() == sizeof(sockaddr_in) ? " IPv4" : " IPv6");
        };
        for (const std::string family : {"-4", "-6"}) {
            ip(family + " route add default dev bridge table 100");
            ip(family + " rule add ipproto udp lookup 100");
        }
        expectThroughBridge(false, 4445);
        for (const std::string family : {"-4", "-6"})
            ip(family + " rule add ipproto tcp dport 4445 lookup 100");
        expectThroughBridge(true, 4445);
        expectThroughBridge(false, 445);
    });
}

TEST(Route, isNotFoundWhereThereIsNone)
{
    inNetworkNamespace([] {
        RouteLookup lookup;
        for (const auto& address : {ipv4Address("192.0.2.1"), ipv6Address("2001:db8::1")}) {
            std::error_code error;
            EXPECT_FALSE(lookup.find(address, 0, error));
            EXPECT_FALSE(error) << error.message();
        }
    });
}

TEST(Route, isFoundWhenNoDescriptorIsLeft)
{
    inNetworkNamespace([] {
        Computer computer;
        const auto lan = static_cast<int>(::if_nametoindex("lan"));
        const DescriptorShortage shortage;
        EXPECT_EQ(computer.monitor->routeThrough(lan, ipv4Address("192.0.2.1")),
                  OutgoingRoute::Preferred);
    });
}

TEST(Route, isUnknownWhereTheKernelCannotBeAsked)
{
    inNetworkNamespace([] {
        const DescriptorShortage shortage;
        RouteLookup lookup;
        std::error_code error;
        EXPECT_FALSE(lookup.find(ipv4Address("192.0.2.1"), 0, error));
        EXPECT_TRUE(error);
    });
}

TEST(Route, isFoundOfTheRightAddressByThreadsThatAskAtTheSameTime)
{
    inNetworkNamespace([] {
        Computer computer;
        const auto lan = static_cast<int>(::if_nametoindex("lan"));
        const auto expectRoutes = [&](const char* text, OutgoingRoute expected) {
            const auto address = ipv4Address(text);
            int others = 0;
            for (int count = 0; count < 20000; ++count)
                others += computer.monitor->routeThrough(lan, address) == expected ? 0 : 1;
            EXPECT_EQ(others, 0) << text;
        };
        std::thread other(expectRoutes, "192.0.2.7", OutgoingRoute::None);
        expectRoutes("192.0.2.1", OutgoingRoute::Preferred);
        other.join();
    });
}

TEST(Route, ofWhatIsNoAddressIsNone)
{
    DispatchPool pool;
    const auto monitor = makeNetworkMonitor(pool);
    EXPECT_EQ(monitor->routeThrough(1, {}), OutgoingRoute::None);
}

} // namespace quillbox
