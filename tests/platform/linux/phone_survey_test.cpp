#include "platform/dial/dialable_address.h"
#include "platform/linux/phone_survey.h"
#include "platform/tcp/socket_calls.h"
#include "platform/values/socket_address.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_dns_sd.h"
#include "tests/fakes/fake_network_monitor.h"
#include "tests/fakes/socket_addresses.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

namespace quillbox {

namespace {

using BrowseState = DnsSd::BrowseUpdate::State;
using PortState = PortFacts::State;

constexpr const char* kPhoneType = "_phone._tcp";
constexpr int kLan = 7;

ServiceEndpoint phone(const std::string& name)
{
    return {.name = name, .type = kPhoneType, .domain = "local"};
}

class PhoneSurveyTest : public ::testing::Test {
protected:
    /// Says which phones there are.
    void browse(std::vector<ServiceEndpoint> services)
    {
        activeBrowse().tell(
            {.state = BrowseState::Ready, .error = {}, .services = std::move(services)});
    }

    /// Answers one of the questions for addresses, counted from 0 in the order of their start.
    void resolve(std::size_t question, const std::vector<DnsSd::FoundAddress>& addresses)
    {
        resolutions().at(question).tell({.addresses = addresses, .error = {}});
    }

    PhonesFacts facts()
    {
        dispatch.runAll();
        return survey.facts(monitor, std::chrono::seconds(20));
    }

    FakeDnsSd::Browse activeBrowse() const { return active(dnsSd.browses()).at(0); }
    std::vector<FakeDnsSd::Resolution> resolutions() const { return active(dnsSd.resolutions()); }

    FakeDispatch dispatch;
    FakeNetworkMonitor monitor;
    FakeDnsSd dnsSd;
    PhoneSurvey survey{dnsSd, dispatch.makeQueue("phones", QualityOfService::Utility), kPhoneType};
};

TEST_F(PhoneSurveyTest, knowsThatAnEngineIsUpFromItsFirstAnswer)
{
    EXPECT_EQ(activeBrowse().request, kPhoneType);
    EXPECT_EQ(facts().isEngineUp, Seen::No);
    activeBrowse().tell(
        {.state = BrowseState::Waiting, .error = {}, .services = {phone("Office")}});
    EXPECT_EQ(facts().isEngineUp, Seen::No);
    EXPECT_TRUE(facts().phones.empty());
    browse({});
    EXPECT_EQ(facts().isEngineUp, Seen::Yes);
}

TEST_F(PhoneSurveyTest, saysWhereAPhoneIsAndWhetherItsPortIsOpen)
{
    std::error_code error;
    const int listener = openListeningSocket(0, false, error);
    ASSERT_FALSE(error);
    const std::uint16_t port = localPort(listener);
    browse({phone("Office")});
    dispatch.runAll();
    ASSERT_EQ(resolutions().size(), 1U);
    EXPECT_EQ(resolutions().front().request, phone("Office"));
    resolutions().front().tell({.addresses = {{ipv4Address("127.0.0.1", port), kLoopbackInterface}},
                                .error = {},
                                .hosts = {{"one.local", port}, {"two.local", port}}});
    const auto found = facts().phones;
    ::close(listener);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].name, "Office");
    EXPECT_EQ(found[0].port, port);
    EXPECT_EQ(found[0].hosts, 2U);
    ASSERT_EQ(found[0].addresses.size(), 1U);
    EXPECT_EQ(found[0].addresses[0].address, "127.0.0.1");
    EXPECT_EQ(found[0].addresses[0].state, PortState::Open);
}

TEST_F(PhoneSurveyTest, opensNoWayToThisComputerForARecordFromTheNetwork)
{
    browse({phone("Office")});
    dispatch.runAll();
    resolve(0, {{ipv4Address("127.0.0.1", 445), kLan}});
    EXPECT_EQ(facts().phones.at(0).addresses.at(0).state, PortState::NotDialled);
}

TEST_F(PhoneSurveyTest, namesFourAddressesOfAPhoneEachOnce)
{
    browse({phone("Office")});
    dispatch.runAll();
    // None of them is dialled.
    resolve(0, {{ipv4Address("127.0.0.1", 445), kLan},
                {ipv4Address("127.0.0.1", 446), kLan},
                {ipv4Address("127.0.0.2", 445), kLan},
                {ipv4Address("127.0.0.3", 445), kLan},
                {ipv4Address("127.0.0.4", 445), kLan},
                {ipv4Address("127.0.0.5", 445), kLan}});
    const PhoneFacts found = facts().phones.at(0);
    std::vector<std::string> texts;
    for (const auto& each : found.addresses)
        texts.push_back(each.address);
    EXPECT_EQ(texts,
              (std::vector<std::string>{"127.0.0.1", "127.0.0.2", "127.0.0.3", "127.0.0.4"}));
}

TEST_F(PhoneSurveyTest, asksForTheFirst32Phones)
{
    std::vector<ServiceEndpoint> services;
    for (int number = 0; number < 40; ++number)
        services.push_back(phone(std::to_string(number)));
    browse(services);
    const auto found = facts().phones;
    ASSERT_EQ(found.size(), 32U);
    EXPECT_EQ(found.back().name, "31");
    EXPECT_EQ(resolutions().size(), 32U);
}

TEST_F(PhoneSurveyTest, keepsTheAddressesOfAPhoneWhenAnotherComes)
{
    browse({phone("Office")});
    dispatch.runAll();
    resolve(0, {{ipv4Address("127.0.0.1", 445), kLan}});
    browse({phone("Kitchen"), phone("Office")});
    const auto found = facts().phones;
    ASSERT_EQ(found.size(), 2U);
    EXPECT_TRUE(found[0].addresses.empty());
    EXPECT_EQ(found[1].addresses.size(), 1U);
}

TEST_F(PhoneSurveyTest, ignoresAnAnswerForAPhoneThatHasLeft)
{
    browse({phone("Office")});
    dispatch.runAll();
    browse({phone("Kitchen")});
    resolve(0, {{ipv4Address("127.0.0.1", 445), kLan}});
    const auto found = facts().phones;
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].name, "Kitchen");
    EXPECT_TRUE(found[0].addresses.empty());
    EXPECT_EQ(resolutions().size(), 1U);
}

} // namespace

} // namespace quillbox
