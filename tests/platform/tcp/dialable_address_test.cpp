#include "platform/tcp/dialable_address.h"
#include "tests/fakes/socket_addresses.h"

#include <string>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

constexpr std::uint16_t kPort = 4445;

SocketAddress address(const std::string& text, std::uint16_t port = kPort, std::uint32_t scope = 0)
{
    return text.find(':') == std::string::npos ? ipv4Address(text, port)
                                               : ipv6Address(text, scope, port);
}

InterfaceAddress own(const std::string& text, int index, std::uint32_t scope = 0)
{
    InterfaceAddress result;
    result.interfaceIndex = index;
    result.interfaceName = index == 1 ? "lo" : "wlan0";
    result.isLoopback = index == 1;
    result.address = address(text, 0, scope);
    return result;
}

OwnAddresses thisComputer(bool isOwnPort)
{
    return {.addresses = {own("127.0.0.1", 1), own("::1", 1), own("192.0.2.7", 2),
                          own("2001:db8::7", 2), own("fe80::7", 2, 2)},
            .isOwnPort = isOwnPort};
}

} // namespace

struct Case {
    const char* text;
    bool isDialable;           ///< when found by DNS-SD on the network
    bool isDialableOnLoopback; ///< when found by DNS-SD on a loopback interface
};

class DialableAddress : public testing::TestWithParam<Case> {};

TEST_P(DialableAddress, isJudgedByWhereItCameFrom)
{
    const auto& [text, isFromNetwork, isFromLoopback] = GetParam();
    const auto other = thisComputer(false);
    EXPECT_EQ(isDialable(address(text), AddressOrigin::DnsSd, other), isFromNetwork);
    EXPECT_EQ(isDialable(address(text), AddressOrigin::DnsSdOnLoopback, other), isFromLoopback);
    EXPECT_TRUE(isDialable(address(text), AddressOrigin::Typed, other));
    // DNS-SD addresses need a port; typed ones are not restricted.
    EXPECT_FALSE(isDialable(address(text, 0), AddressOrigin::DnsSd, other));
    EXPECT_FALSE(isDialable(address(text, 0), AddressOrigin::DnsSdOnLoopback, other));
    EXPECT_TRUE(isDialable(address(text, 0), AddressOrigin::Typed, other));
}

INSTANTIATE_TEST_SUITE_P(
    Matrix, DialableAddress,
    testing::Values(Case{"192.0.2.1", true, true}, Case{"10.0.0.1", true, true},
                    Case{"169.254.3.4", true, true}, Case{"192.0.2.7", true, true},
                    Case{"fe80::1", true, true}, Case{"2001:db8::1", true, true},
                    Case{"fd00::1", true, true}, Case{"::ffff:192.0.2.1", true, true},
                    Case{"0.0.0.0", false, false}, Case{"0.1.2.3", false, false},
                    Case{"::", false, false}, Case{"::ffff:0.0.0.0", false, false},
                    Case{"224.0.0.251", false, false}, Case{"239.255.255.250", false, false},
                    Case{"ff02::fb", false, false}, Case{"::ffff:224.0.0.1", false, false},
                    Case{"255.255.255.255", false, false},
                    Case{"::ffff:255.255.255.255", false, false}, Case{"127.0.0.1", false, true},
                    Case{"127.255.255.254", false, true}, Case{"::1", false, true},
                    Case{"::ffff:127.0.0.1", false, true}));

TEST(DialableAddressOfThisComputer, isNotDialledAtAnOwnListenersPort)
{
    for (const auto* text : {"192.0.2.7", "2001:db8::7", "::ffff:192.0.2.7", "127.0.0.1",
                             "127.4.5.6", "::1", "::ffff:127.0.0.1", "0.0.0.0", "::"}) {
        for (const auto origin :
             {AddressOrigin::Typed, AddressOrigin::DnsSd, AddressOrigin::DnsSdOnLoopback})
            EXPECT_FALSE(isDialable(address(text), origin, thisComputer(true))) << text;
    }
}

TEST(DialableAddressOfThisComputer, isDialledAtOtherPorts)
{
    EXPECT_TRUE(isDialable(address("192.0.2.7"), AddressOrigin::DnsSd, thisComputer(false)));
    EXPECT_TRUE(isDialable(address("127.0.0.1"), AddressOrigin::Typed, thisComputer(false)));
}

TEST(DialableAddressOfThisComputer, isToldFromTheSameLinkLocalAddressOnAnotherLink)
{
    EXPECT_FALSE(
        isDialable(address("fe80::7", kPort, 2), AddressOrigin::DnsSd, thisComputer(true)));
    EXPECT_TRUE(isDialable(address("fe80::7", kPort, 3), AddressOrigin::DnsSd, thisComputer(true)));
    EXPECT_FALSE(
        isDialable(address("fe80::7", kPort, 0), AddressOrigin::DnsSd, thisComputer(true)));
}

TEST(DialableAddressOfAnotherComputer, isDialledAtAPortThatIsOursHere)
{
    EXPECT_TRUE(isDialable(address("192.0.2.1"), AddressOrigin::DnsSd, thisComputer(true)));
}

TEST(AddressOfThisComputer, isOneOfItsInterfacesOrLeadsToItself)
{
    const auto own = thisComputer(false).addresses;
    for (const auto* text :
         {"192.0.2.7", "2001:db8::7", "::ffff:192.0.2.7", "127.4.5.6", "::1", "0.0.0.0", "::"})
        EXPECT_TRUE(isOfThisComputer(address(text), own)) << text;
    for (const auto* text : {"192.0.2.1", "2001:db8::1", "10.0.0.1"})
        EXPECT_FALSE(isOfThisComputer(address(text), own)) << text;
    EXPECT_FALSE(isOfThisComputer({}, own));
}

TEST(AddressOrigin, isTheLoopbackInterfaceForLoopbackAddressesAlone)
{
    InterfaceAddress loopback;
    loopback.interfaceIndex = 1;
    loopback.isLoopback = true;
    InterfaceAddress wired;
    wired.interfaceIndex = 2;
    const std::vector<InterfaceAddress> own{loopback, wired};
    EXPECT_EQ(originOf(address("127.0.0.1"), 1, own), AddressOrigin::DnsSdOnLoopback);
    EXPECT_EQ(originOf(address("::1"), 1, own), AddressOrigin::DnsSdOnLoopback);
    EXPECT_EQ(originOf(address("127.0.0.1"), 2, own), AddressOrigin::DnsSd);
    EXPECT_EQ(originOf(address("127.0.0.1"), 3, own), AddressOrigin::DnsSd);
    EXPECT_EQ(originOf(address("192.0.2.1"), 1, own), AddressOrigin::DnsSd);
}

TEST(DialableAddressOfNoFamily, isNeverDialled)
{
    EXPECT_FALSE(isDialable({}, AddressOrigin::Typed, thisComputer(false)));
    EXPECT_FALSE(isDialable(SocketAddress(3), AddressOrigin::Typed, thisComputer(false)));
    auto shortened = address("2001:db8::1");
    shortened.pop_back();
    EXPECT_FALSE(isDialable(shortened, AddressOrigin::Typed, thisComputer(false)));
    EXPECT_FALSE(isDialable(SocketAddress(28), AddressOrigin::DnsSd, thisComputer(false)));
}

} // namespace quillbox
