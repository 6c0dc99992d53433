#include "platform/dnssd/operations/names.h"
#include "platform/dnssd/operations/own_services.h"

#include <algorithm>
#include <list>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace quillbox::dnssd {

namespace {

struct Host {
    std::string name;
    Address loopback;

    bool operator==(const Host&) const = default;
};

/// Services that claim their hosts.
class Hosts {
public:
    Host claim(const std::string& computer, const std::string& service, unsigned& number)
    {
        auto& entry = entries.emplace_back(services, ServiceRegistration{service, "_smb._tcp"}, 1);
        entry.claimHost(computer, number);
        return {entry.hostName(), entry.loopback()};
    }

    OwnServices services;
    std::list<OwnServices::Entry> entries;
};

Host hostOf(const std::string& computer, const std::string& service, unsigned number = 1)
{
    return Hosts().claim(computer, service, number);
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

TEST(OwnHosts, isTheSameInEveryRun)
{
    // A literal, because bookmarks in file browsers contain it: whoever changes the rule sees here
    // that they would lead nowhere.
    const Host host = hostOf("My-PC.local", "Quillbox");
    EXPECT_EQ(host.name, "quillbox-my-pc-c8613708.local");
    EXPECT_EQ(host, hostOf("my-pc.local", "Quillbox"));
}

TEST(OwnHosts, namesNoComputerThatHasNoName)
{
    EXPECT_EQ(hostOf("", "Quillbox").name, "quillbox-c8613708.local");
}

TEST(OwnHosts, beginsWithTheNameOfTheServiceAsFarAsItFits)
{
    const auto hostNameOf = [](const std::string& computer, const std::string& service) {
        return hostOf(computer, service).name;
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

TEST(OwnHosts, hasABeginningWhereNothingOfTheNameCanBeWritten)
{
    EXPECT_TRUE(
        hostOf("my-pc.local", "\xe4\xb9\xa6\xe6\x88\xbf").name.starts_with("server-my-pc-"));
    EXPECT_TRUE(hostOf("", "\xe4\xb9\xa6\xe6\x88\xbf").name.starts_with("server-"));
}

TEST(OwnHosts, isTheSameWhateverElseIsRegisteredAndInWhichOrder)
{
    Hosts one;
    Hosts other;
    unsigned number = 1;
    const Host kitchen = one.claim("pc.local",
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

TEST(OwnHosts, differsBetweenNamesThatLookAlike)
{
    std::set<std::string> hostNames;
    std::set<Address> loopbacks;
    Hosts hosts;
    for (const char* name :
         {"Quillbox", "quillbox", "Quillbox ", "Quillbox!", "\xc3\x84", "\xc3\x96"}) {
        unsigned number = 1;
        const Host host = hosts.claim("my-pc.local", name, number);
        EXPECT_EQ(number, 1U);
        EXPECT_TRUE(isHostName(host.name)) << host.name;
        hostNames.insert(host.name);
        loopbacks.insert(host.loopback);
    }
    EXPECT_EQ(hostNames.size(), 6U);
    EXPECT_EQ(loopbacks.size(), 6U);
}

TEST(OwnHosts, isOneForCanonicallyEqualNames)
{
    EXPECT_EQ(hostOf("pc.local", "Caf\xc3\xa9"), hostOf("pc.local", "Cafe\xcc\x81"));
}

TEST(OwnHosts, isALabelForAnyText)
{
    for (const std::string& computer :
         {std::string(), std::string(300, 'a'), std::string("--..")}) {
        for (const std::string& service :
             {std::string(63, 'x'), std::string("\xf0\x9f\x93\xb1"), std::string("-")})
            EXPECT_TRUE(isHostName(hostOf(computer, service, 99'999).name));
    }
}

TEST(OwnHosts, isNeverGivenTwice)
{
    Hosts hosts;
    unsigned first = 1;
    unsigned second = 1;
    const Host one = hosts.claim("pc.local", "Twin", first);
    const Host two = hosts.claim("pc.local", "Twin", second);
    EXPECT_EQ(first, 1U);
    EXPECT_EQ(second, 2U);
    EXPECT_NE(one.name, two.name);
    EXPECT_NE(one.loopback, two.loopback);
    hosts.entries.pop_front();
    unsigned again = 1;
    EXPECT_EQ(hosts.claim("pc.local", "Twin", again), one);
}

TEST(OwnHosts, hasALoopbackAddressAwayFromThoseInUse)
{
    for (int i = 0; i < 2000; ++i) {
        const auto bytes = hostOf("pc.local", "Name " + std::to_string(i)).loopback.bytes;
        EXPECT_EQ(bytes[0], 127);
        EXPECT_NE(bytes[1], 0);
        EXPECT_NE(bytes[1], 255);
        EXPECT_NE(bytes[3], 0);
        EXPECT_NE(bytes[3], 255);
    }
}

} // namespace quillbox::dnssd
