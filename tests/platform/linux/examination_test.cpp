#include "platform/linux/examination.h"
#include "platform/linux/system_configuration.h"
#include "tests/platform/netlink/network_namespace.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <string>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

constexpr const char* kOwnName = "office.local";

NameService onlyLocal()
{
    return NameService("hosts: files mdns4_minimal\n");
}

NameExamination examined(const NameService& service, bool isResolverRunning,
                         const std::string& name, bool isFound)
{
    return examineNames(
        service, isResolverRunning, name,
        [isFound](const std::string& asked) { return isFound && asked == kOwnName; },
        std::chrono::steady_clock::now() + std::chrono::seconds(20));
}

TEST(NameExamination, looksUpThisComputersName)
{
    ASSERT_TRUE(onlyLocal().isLocalOnly());
    const auto found = examined(onlyLocal(), true, kOwnName, true);
    EXPECT_EQ(found.facts.service, onlyLocal());
    EXPECT_EQ(found.facts.askedName, kOwnName);
    EXPECT_EQ(found.facts.isResolved, Seen::Yes);
    EXPECT_FALSE(found.isStuck);
    EXPECT_EQ(examined(onlyLocal(), true, kOwnName, false).facts.isResolved, Seen::No);
}

TEST(NameExamination, looksNothingUpThatCouldBotherADnsServer)
{
    const NameService withDns("hosts: files mdns4_minimal dns\n");
    ASSERT_FALSE(withDns.isLocalOnly());
    for (const bool isRunning : {true, false}) {
        const auto found = examined(withDns, isRunning, kOwnName, true);
        EXPECT_EQ(found.facts.service, withDns);
        EXPECT_EQ(found.facts.askedName, "");
        EXPECT_EQ(found.facts.isResolved, Seen::Unknown);
    }
}

TEST(NameExamination, asksResolvedWhicheverModulesComeAfterIt)
{
    for (const char* hosts : {"resolve [!UNAVAIL=return] dns", "resolve dns"}) {
        const NameService service(std::string("hosts: ") + hosts);
        const auto found = examined(service, true, kOwnName, true);
        EXPECT_EQ(found.facts.askedName, kOwnName);
        EXPECT_EQ(found.facts.isResolved, Seen::Yes);
        EXPECT_EQ(examined(service, true, "", true).facts.isResolved, Seen::Unknown);
        EXPECT_EQ(examined(service, false, kOwnName, true).facts.isResolved, Seen::No);
    }
}

TEST(NameExamination, needsNoLookUpWhereTheResolverDoesNotRun)
{
    const auto found = examined(onlyLocal(), false, kOwnName, true);
    EXPECT_EQ(found.facts.askedName, "");
    EXPECT_EQ(found.facts.isResolved, Seen::No);
}

TEST(NameExamination, knowsNothingWithoutAName)
{
    EXPECT_EQ(examined(onlyLocal(), true, "", false).facts.isResolved, Seen::Unknown);
}

TEST(NameExamination, isStuckWhileTheNameServiceDoesNotAnswer)
{
    std::promise<bool> answer;
    const auto late = answer.get_future().share();
    const auto found = examineNames(
        onlyLocal(), true, kOwnName, [late](const std::string&) { return late.get(); },
        std::chrono::steady_clock::now());
    EXPECT_EQ(found.facts.askedName, kOwnName);
    EXPECT_EQ(found.facts.isResolved, Seen::Unknown);
    EXPECT_TRUE(found.isStuck);
    answer.set_value(true);
}

/// A process of this program that has UDP port 5353 open, on the loopback interface. To be made in
TEST(Examination, findsTheInterfacesAndAnEngine)
{
    inNetworkNamespace([] {
        setLoopbackUp(true);
        ip("link add wire0 type veth peer name wire1");
        ip("addr add 192.0.2.1/24 dev wire0");
        ip("link set wire1 up");
        ip("link set wire0 up");
        settleLink("wire0");
        const auto [facts, isSomethingStuck] =
            examineSystem("_phone._tcp", [] { return std::string(); });
        EXPECT_FALSE(isSomethingStuck);
        const auto wire = std::find_if(facts.interfaces.begin(), facts.interfaces.end(),
                                       [](const auto& each) { return each.name == "wire0"; });
        ASSERT_NE(wire, facts.interfaces.end());
        EXPECT_TRUE(wire->ipv4.isOwnHeard);
        EXPECT_EQ(facts.phones.isEngineUp, Seen::Yes);
        EXPECT_TRUE(facts.phones.phones.empty());
        EXPECT_EQ(facts.avahi.state, AvahiFacts::State::NoBus);
        EXPECT_EQ(facts.firewall.firewalld, Seen::No);
        EXPECT_EQ(facts.packageManager, systemPackageManager());
    });
}

} // namespace

} // namespace quillbox
