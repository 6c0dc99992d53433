#include "discovery/management_url.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/netlink/network_namespace.h"

#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

namespace quillbox {
namespace {

TEST(ManagementUrl, writesAnIPv4AddressInDottedDecimals)
{
    EXPECT_EQ(managementUrl(ipv4Address("192.0.2.7", 8443)), "https://192.0.2.7:8443/");
}

TEST(ManagementUrl, usesThePortAsItIs)
{
    EXPECT_EQ(managementUrl(ipv4Address("192.0.2.7", 0)), "https://192.0.2.7:0/");
    EXPECT_EQ(managementUrl(ipv4Address("192.0.2.7", 65535)), "https://192.0.2.7:65535/");
}

TEST(ManagementUrl, putsAnIPv6AddressInBrackets)
{
    EXPECT_EQ(managementUrl(ipv6Address("2001:db8::7", 0, 443)), "https://[2001:db8::7]:443/");
}

TEST(ManagementUrl, encodesTheZoneOfALinkLocalAddress)
{
    // The loopback interface exists on every machine and has index 1.
    EXPECT_EQ(managementUrl(ipv6Address("fe80::7", 1, 443)), "https://[fe80::7%25lo]:443/");
}

TEST(ManagementUrl, encodesEachByteOfTheZoneThatIsReservedInUrls)
{
    inNetworkNamespace([] {
        renameLoopback("a-b.c_d~1&[?\xc3\xa9");
        EXPECT_EQ(managementUrl(ipv6Address("fe80::7", 1, 443)),
                  "https://[fe80::7%25a-b.c_d~1%26%5B%3F%C3%A9]:443/");
    });
}

TEST(ManagementUrl, encodesAZoneOfAnyBytesAsUtf8)
{
    EXPECT_EQ(urlOfNumericHost("fe80::7%w/%\xc3\xa9", 443),
              "https://[fe80::7%25w%2F%25%C3%A9]:443/");
    EXPECT_EQ(urlOfNumericHost("fe80::7%a\xff"
                               "b\xc3",
                               443),
              "https://[fe80::7%25a%EF%BF%BDb%EF%BF%BD]:443/");
    EXPECT_EQ(urlOfNumericHost("fe80::7%\xe2\x82\xac\xf0\x9f\x93\xb1", 443),
              "https://[fe80::7%25%E2%82%AC%F0%9F%93%B1]:443/");
}

TEST(ManagementUrl, hasNoneForBytesThatAreNoAddress)
{
    EXPECT_EQ(managementUrl({}), std::nullopt);
    const auto ipv6 = ipv6Address("2001:db8::7");
    EXPECT_EQ(managementUrl({ipv6.data(), 10}), std::nullopt);
}

} // namespace
} // namespace quillbox
