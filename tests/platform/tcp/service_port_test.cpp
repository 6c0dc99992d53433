#include "platform/tcp/own_ports.h"
#include "tests/platform/netlink/network_namespace.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillbox {

namespace {

using testing::AllOf;
using testing::Each;
using testing::Ge;
using testing::Le;

constexpr PortRange kUsual{.first = 32768, .last = 60999};

std::uint16_t firstPort(const std::string& name)
{
    return servicePorts(name, kUsual).front();
}

} // namespace

TEST(ServicePort, isTheSameInEveryVersion)
{
    // Passwords and bookmarks of users depend on these.
    EXPECT_EQ(firstPort("Quillbox"), 64459);
    EXPECT_EQ(firstPort("Quillbox Office"), 63981);
    EXPECT_EQ(firstPort("Quillbox K\xc3\xbc"
                        "che"),
              61165);
}

TEST(ServicePort, isTheSameForEveryFormOfAName)
{
    EXPECT_EQ(firstPort("Quillbox Ku\xcc\x88"
                        "che"),
              firstPort("Quillbox K\xc3\xbc"
                        "che"));
}

TEST(ServicePort, differsBetweenNames)
{
    std::set<std::uint16_t> ports;
    for (int number = 0; number < 100; ++number)
        ports.insert(firstPort("Quillbox " + std::to_string(number)));
    EXPECT_GE(ports.size(), 95U);
}

TEST(ServicePort, isFollowedByTheNextOnes)
{
    const std::vector<std::uint16_t> expected{63981, 63982, 63983, 63984,
                                              63985, 63986, 63987, 63988};
    EXPECT_EQ(servicePorts("Quillbox Office", kUsual), expected);
}

TEST(ServicePort, isFollowedByTheFirstOfTheRangeWhereThatEnds)
{
    int number = 0;
    while (firstPort(std::to_string(number)) != kServicePorts.last)
        ++number;
    const auto ports = servicePorts(std::to_string(number), kUsual);
    EXPECT_EQ(ports[1], kServicePorts.first);
    EXPECT_THAT(ports, Each(AllOf(Ge(kServicePorts.first), Le(kServicePorts.last))));
}

TEST(ServicePort, isNoneThatTheKernelGivesAway)
{
    for (const PortRange ephemeral :
         {PortRange{.first = 32768, .last = 62999}, PortRange{.first = 62000, .last = 65535},
          PortRange{.first = 61001, .last = 64998}}) {
        for (int number = 0; number < 100; ++number) {
            for (const auto port : servicePorts(std::to_string(number), ephemeral)) {
                EXPECT_FALSE(ephemeral.contains(port)) << port;
                EXPECT_TRUE(kServicePorts.contains(port)) << port;
            }
        }
    }
}

TEST(ServicePort, isTheUsualOneUnlessTheKernelGivesJustThatOneAway)
{
    EXPECT_EQ(servicePorts("Quillbox Office", {.first = 32768, .last = 62999}),
              servicePorts("Quillbox Office", kUsual));
    EXPECT_EQ(servicePorts("Quillbox Office", {.first = 63000, .last = 63985}).front(), 63986);
    EXPECT_EQ(servicePorts("Quillbox Office", {.first = 63985, .last = 64999}),
              (std::vector<std::uint16_t>{63981, 63982, 63983, 63984, 61000, 61001, 61002, 61003}));
}

TEST(ServicePort, isTheUsualOneWhereTheKernelGivesAllOfThemAway)
{
    EXPECT_EQ(servicePorts("Quillbox Office", {.first = 1024, .last = 65535}),
              servicePorts("Quillbox Office", kUsual));
}

TEST(ServicePort, dependsOnTheRangeOfThisSystem)
{
    EXPECT_EQ(parsePortRange("1024\t65000\n"), (PortRange{.first = 1024, .last = 65000}));
    for (const auto* text : {"", "x", "5\n", "9 8", "1 65536", "32768\t60999\n"})
        EXPECT_EQ(parsePortRange(text), kUsual) << text;
    inNetworkNamespace([] {
        EXPECT_EQ(ephemeralPorts(), kUsual);
        std::ofstream("/proc/sys/net/ipv4/ip_local_port_range") << "20000 64000\n";
        EXPECT_EQ(ephemeralPorts(), (PortRange{.first = 20000, .last = 64000}));
    });
}

} // namespace quillbox
