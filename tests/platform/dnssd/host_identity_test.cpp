#include "platform/dnssd/operations/host_identity.h"
#include "platform/dnssd/operations/names.h"

#include <algorithm>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace quillbox::dnssd {

namespace {

HostIdentity identityOf(const std::string& computer, const std::string& service,
                        unsigned number = 1)
{
    HostIdentities identities;
    return identities.claim(computer, service, number);
}

bool isHostName(const std::string& name)
{
    const std::string label = name.substr(0, name.find('.'));
    return name == label + ".local" && !label.empty() && label.size() <= kMaximumLabelSize
           && label.front() != '-' && label.back() != '-' && std::ranges::all_of(label, [](char c) {
                  return c == '-' || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
              });
}

} // namespace

TEST(HostIdentity, isTheSameInEveryRun)
{
    // A literal, because bookmarks in file browsers contain it: whoever changes the rule sees here
    // that they would lead nowhere.
    const HostIdentity identity = identityOf("My-PC.local", "Quillbox");
    EXPECT_EQ(identity.hostName, "quillbox-my-pc-c8613708.local");
    EXPECT_EQ(identity, identityOf("my-pc.local", "Quillbox"));
}

TEST(HostIdentity, namesNoComputerThatHasNoName)
{
    EXPECT_EQ(identityOf("", "Quillbox").hostName, "quillbox-c8613708.local");
}

TEST(HostIdentity, beginsWithTheNameOfTheServiceAsFarAsItFits)
{
    const auto hostNameOf = [](const std::string& computer, const std::string& service) {
        return identityOf(computer, service).hostName;
    };

    EXPECT_TRUE(hostNameOf("my-pc.local", "Quillbox Office").starts_with("quillbox-office-my-pc-"));
    EXPECT_TRUE(hostNameOf("my-pc.local", "Quillbox K\xc3\xbc"
                                          "che")
                    .starts_with("quillbox-kuche-my-pc-"));
    EXPECT_TRUE(hostNameOf("my-pc.local", "Quillbox \xe4\xb9\xa6\xe6\x88\xbf")
                    .starts_with("quillbox-my-pc-"));
    EXPECT_TRUE(hostNameOf("my-pc.local", "Quillbox <b>-- & \n../../etc")
                    .starts_with("quillbox-b-etc-my-pc-"));
    EXPECT_TRUE(hostNameOf("vm-a-very-long-name-of-a-computer.local",
                           "Quillbox in the room above the garage")
                    .starts_with("quillbox-in-the-room-above-t-vm-a-very-long-nam-"));
}

TEST(HostIdentity, hasABeginningWhereNothingOfTheNameCanBeWritten)
{
    EXPECT_TRUE(identityOf("my-pc.local", "\xe4\xb9\xa6\xe6\x88\xbf")
                    .hostName.starts_with("server-my-pc-"));
    EXPECT_TRUE(identityOf("", "\xe4\xb9\xa6\xe6\x88\xbf").hostName.starts_with("server-"));
}

TEST(HostIdentity, isTheSameWhateverElseIsRegisteredAndInWhichOrder)
{
    HostIdentities one;
    HostIdentities other;
    unsigned number = 1;
    const HostIdentity kitchen = one.claim("pc.local",
                                           "Quillbox Ku\xcc\x88"
                                           "che",
                                           number);
    other.claim("pc.local", "Quillbox Kuche", number);

    EXPECT_EQ(other.claim("pc.local",
                          "Quillbox K\xc3\xbc"
                          "che",
                          number),
              kitchen);
    EXPECT_EQ(number, 1U);
}

TEST(HostIdentity, differsBetweenNamesThatLookAlike)
{
    std::set<std::string> hostNames;
    std::set<Address> loopbacks;
    HostIdentities identities;
    for (const char* name :
         {"Quillbox", "quillbox", "Quillbox ", "Quillbox!", "\xc3\x84", "\xc3\x96"}) {
        unsigned number = 1;
        const HostIdentity identity = identities.claim("my-pc.local", name, number);
        EXPECT_EQ(number, 1U);
        EXPECT_TRUE(isHostName(identity.hostName)) << identity.hostName;
        hostNames.insert(identity.hostName);
        loopbacks.insert(identity.loopback);
    }
    EXPECT_EQ(hostNames.size(), 6U);
    EXPECT_EQ(loopbacks.size(), 6U);
}

TEST(HostIdentity, isOneForCanonicallyEqualNames)
{
    EXPECT_EQ(identityOf("pc.local", "Caf\xc3\xa9"), identityOf("pc.local", "Cafe\xcc\x81"));
}

TEST(HostIdentity, isALabelForAnyText)
{
    for (const std::string& computer :
         {std::string(), std::string(300, 'a'), std::string("--..")}) {
        for (const std::string& service :
             {std::string(63, 'x'), std::string("\xf0\x9f\x93\xb1"), std::string("-")})
            EXPECT_TRUE(isHostName(identityOf(computer, service, 99'999).hostName));
    }
}

TEST(HostIdentity, isNeverGivenTwice)
{
    HostIdentities identities;
    unsigned first = 1;
    unsigned second = 1;
    const HostIdentity one = identities.claim("pc.local", "Twin", first);
    const HostIdentity two = identities.claim("pc.local", "Twin", second);
    EXPECT_EQ(first, 1U);
    EXPECT_EQ(second, 2U);
    EXPECT_NE(one.hostName, two.hostName);
    EXPECT_NE(one.loopback, two.loopback);
    identities.release(one);
    unsigned again = 1;
    EXPECT_EQ(identities.claim("pc.local", "Twin", again), one);
}

TEST(HostIdentity, hasALoopbackAddressAwayFromThoseInUse)
{
    for (int i = 0; i < 2000; ++i) {
        const auto bytes = identityOf("pc.local", "Name " + std::to_string(i)).loopback.bytes;
        EXPECT_EQ(bytes[0], 127);
        EXPECT_NE(bytes[1], 0);
        EXPECT_NE(bytes[1], 255);
        EXPECT_NE(bytes[3], 0);
        EXPECT_NE(bytes[3], 255);
    }
}

} // namespace quillbox::dnssd
