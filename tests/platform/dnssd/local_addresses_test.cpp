#include "platform/dnssd/operations/local_addresses.h"
#include "tests/fakes/fake_engine.h"
#include "tests/fakes/fake_network_monitor.h"

#include <gtest/gtest.h>

namespace quillbox::dnssd {

namespace {

const Address kOwnLoopback = address("127.9.8.7");

} // namespace

TEST(LocalAddresses, areThoseOfTheNetworkAndOneOfOurOwnOnLoopback)
{
    FakeNetworkMonitor monitor;
    monitor.setAddresses({interfaceAddress(1, "lo", "127.0.0.1"), interfaceAddress(1, "lo", "::1"),
                          interfaceAddress(2, "eth0", "192.168.1.5"),
                          interfaceAddress(2, "eth0", "fe80::5"),
                          interfaceAddress(2, "eth0", "2001:db8::5")});
    const LocalAddresses local(monitor);
    const std::vector<HostAddress> expected{{2, address("192.168.1.5")},
                                            {2, address("2001:db8::5")},
                                            {2, address("fe80::5")},
                                            {1, kOwnLoopback}};
    EXPECT_EQ(local.hostAddresses(kOwnLoopback), expected);
}

TEST(LocalAddresses, areThoseThatReachFurthestWhereThereAreTooMany)
{
    FakeNetworkMonitor monitor;
    std::vector<InterfaceAddress> many{interfaceAddress(1, "lo", "127.0.0.1")};
    for (int i = 2; i < 60; ++i)
        many.push_back(interfaceAddress(i, "veth", "fe80::" + std::to_string(i)));
    many.push_back(interfaceAddress(60, "wlan0", "192.168.1.5"));
    monitor.setAddresses(many);
    const auto published = LocalAddresses(monitor).hostAddresses(kOwnLoopback);
    ASSERT_EQ(published.size(), kMaximumHostAddresses + 1);
    EXPECT_EQ(published.front(), (HostAddress{60, address("192.168.1.5")}));
    EXPECT_EQ(published.back(), (HostAddress{1, kOwnLoopback}));
}

TEST(LocalAddresses, areEachOnceAndOneForEachLoopbackInterfaceUpToALimit)
{
    FakeNetworkMonitor monitor;
    std::vector<InterfaceAddress> many{interfaceAddress(2, "eth0", "192.168.1.5"),
                                       interfaceAddress(2, "eth0", "192.168.1.5")};
    for (int i = 10; i < 10 + 2 * static_cast<int>(kMaximumLoopbacks); ++i) {
        many.push_back(interfaceAddress(i, "lo", "127.0.0.1"));
        many.push_back(interfaceAddress(i, "lo", "::1"));
        many[many.size() - 1].isLoopback = many[many.size() - 2].isLoopback = true;
    }
    monitor.setAddresses(many);
    const auto published = LocalAddresses(monitor).hostAddresses(kOwnLoopback);
    ASSERT_EQ(published.size(), 1 + kMaximumLoopbacks);
    EXPECT_EQ(published[0], (HostAddress{2, address("192.168.1.5")}));
    for (std::size_t i = 0; i < kMaximumLoopbacks; ++i)
        EXPECT_EQ(published[1 + i], (HostAddress{10 + static_cast<int>(i), kOwnLoopback}));
}

TEST(LocalAddresses, countAllThatBeginWithTenBitsAsLinkLocal)
{
    FakeNetworkMonitor monitor;
    monitor.setAddresses(
        {interfaceAddress(2, "eth0", "febf::5"), interfaceAddress(2, "eth0", "fec0::5")});
    EXPECT_EQ(LocalAddresses(monitor).hostAddresses(kOwnLoopback),
              (std::vector<HostAddress>{{2, address("fec0::5")}, {2, address("febf::5")}}));
}

TEST(LocalAddresses, skipWhatIsOnNoKnownInterface)
{
    FakeNetworkMonitor monitor;
    monitor.setAddresses(
        {interfaceAddress(0, "lounge", "192.168.1.6"), interfaceAddress(2, "eth0", "192.168.1.5")});
    EXPECT_EQ(LocalAddresses(monitor).hostAddresses(kOwnLoopback),
              (std::vector<HostAddress>{{2, address("192.168.1.5")}}));
}

TEST(LocalAddresses, withoutANetworkAreTheLoopbackOneOnly)
{
    FakeNetworkMonitor monitor;
    monitor.setAddresses({interfaceAddress(1, "lo", "127.0.0.1")});
    EXPECT_EQ(LocalAddresses(monitor).hostAddresses(kOwnLoopback),
              (std::vector<HostAddress>{{1, kOwnLoopback}}));
}

TEST(LocalAddresses, forThisComputerAloneAreTheLoopbackOneAndItsInterface)
{
    FakeNetworkMonitor monitor;
    monitor.setAddresses(
        {interfaceAddress(1, "lo", "127.0.0.1"), interfaceAddress(2, "eth0", "192.168.1.5")});
    const LocalAddresses local(monitor, Reach::ThisComputer);
    EXPECT_EQ(local.hostAddresses(kOwnLoopback), (std::vector<HostAddress>{{1, kOwnLoopback}}));
    EXPECT_EQ(local.publishedOn(), 1);
    EXPECT_EQ(LocalAddresses(monitor).publishedOn(), kEveryInterface);
}

TEST(LocalAddresses, skipWhatIsNoInternetAddress)
{
    FakeNetworkMonitor monitor;
    monitor.setAddresses({{3, "odd0", false, {}}});
    EXPECT_TRUE(LocalAddresses(monitor).hostAddresses(kOwnLoopback).empty());
}

TEST(LocalAddresses, tellOfRealChangesOnly)
{
    FakeNetworkMonitor monitor;
    LocalAddresses local(monitor);
    EXPECT_FALSE(local.refresh());
    monitor.setAddresses({interfaceAddress(2, "eth0", "10.0.0.1")});
    EXPECT_TRUE(local.refresh());
    EXPECT_EQ(local.hostAddresses(kOwnLoopback),
              (std::vector<HostAddress>{{2, address("10.0.0.1")}}));
}

} // namespace quillbox::dnssd
