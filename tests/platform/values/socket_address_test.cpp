#include "platform/values/socket_address.h"
#include "tests/fakes/socket_addresses.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace quillbox {

TEST(ParseNumericHost, readsAddressesOfBothFamilies)
{
    EXPECT_EQ(parseNumericHost("192.0.2.1", 445), ipv4Address("192.0.2.1", 445));
    EXPECT_EQ(parseNumericHost("2001:db8::1", 445), ipv6Address("2001:db8::1", 0, 445));
}

TEST(ParseNumericHost, readsBrackets)
{
    EXPECT_EQ(parseNumericHost("[::1]", 80), ipv6Address("::1", 0, 80));
    EXPECT_FALSE(parseNumericHost("[192.0.2.1]", 80));
    EXPECT_FALSE(parseNumericHost("[]", 80));
}

TEST(ParseNumericHost, readsScopes)
{
    EXPECT_EQ(parseNumericHost("fe80::1%lo", 80), ipv6Address("fe80::1", 1, 80));
    EXPECT_EQ(parseNumericHost("[fe80::1%1]", 80), ipv6Address("fe80::1", 1, 80));
}

TEST(ParseNumericHost, refusesNames)
{
    for (const auto* host :
         {"", "phone", "phone.local", "192.0.2.1.local", "1.2.3.4.5", "fe80::zz"})
        EXPECT_FALSE(parseNumericHost(host, 80)) << host;
}

TEST(SocketAddress, knowsItsPortAndItsFamily)
{
    const auto ipv6 = ipv6Address("2001:db8::1", 0, 445);
    EXPECT_EQ(familyOf(ipv6), AF_INET6);
    EXPECT_EQ(portOf(ipv6), 445);
    EXPECT_EQ(withPort(ipv6, 80), ipv6Address("2001:db8::1", 0, 80));
    EXPECT_EQ(familyOf({}), AF_UNSPEC);
    EXPECT_EQ(portOf({}), 0);
    EXPECT_EQ(withPort({}, 80), SocketAddress());
}

TEST(SocketAddress, isNoneUnlessItHasTheSizeOfItsFamily)
{
    sockaddr_in6 bytes{};
    bytes.sin6_family = AF_INET6;
    const auto* address = reinterpret_cast<const sockaddr*>(&bytes);
    EXPECT_EQ(SocketAddress(address, sizeof bytes), ipv6Address("::"));
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{1}, sizeof(sockaddr_in), sizeof bytes - 1, sizeof bytes + 1})
        EXPECT_TRUE(SocketAddress(address, size).isNone()) << size;
    bytes.sin6_family = AF_INET;
    EXPECT_TRUE(SocketAddress(address, sizeof bytes).isNone());
    EXPECT_FALSE(SocketAddress(address, sizeof(sockaddr_in)).isNone());
    bytes.sin6_family = AF_UNIX;
    EXPECT_TRUE(SocketAddress(address, sizeof bytes).isNone());
    EXPECT_TRUE(toSocketAddress(address).isNone());
}

TEST(NumericHost, isWrittenAsItIsRead)
{
    for (const char* text : {"192.0.2.1", "::1", "2001:db8::7", "fe80::7%lo"})
        EXPECT_EQ(numericHost(*parseNumericHost(text, 445)), text);
    EXPECT_EQ(numericHost({}), std::nullopt);
}

} // namespace quillbox
