#include "platform/dnssd/operations/resolution.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/dnssd/center_fixture.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include <malloc.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using namespace dnssd;
using Addresses = std::vector<DnsSd::FoundAddress>;

class ResolutionTest : public CenterTest {
protected:
    ResolutionTest() { dispatch.runAll(); }

    RequestId location() const { return engine.only<LocationRequest>().id; }

    RequestId query(const std::string& hostName, Family family) const
    {
        for (const auto& request : engine.standing<AddressRequest>()) {
            if (request.hostName == hostName && request.family == family)
                return request.id;
        }
        return 0;
    }

    void locate(const std::string& hostName, std::uint16_t port = 4445, Sighting sighting = kWired)
    {
        emit(LocationAnswer{location(), Change::Found, sighting, {hostName, port}});
    }

    void find(const std::string& hostName, const std::string& text, Sighting sighting = kWired)
    {
        const Address found = address(text);
        emit(AddressAnswer{query(hostName, found.family), Change::Found, sighting, found});
    }

    void lose(const std::string& hostName, const std::string& text, Sighting sighting = kWired)
    {
        const Address gone = address(text);
        emit(AddressAnswer{query(hostName, gone.family), Change::Lost, sighting, gone});
    }

    static DnsSd::FoundAddress v4(const std::string& text, int interfaceIndex = 2,
                                  std::uint16_t port = 4445)
    {
        return {ipv4Address(text, port), interfaceIndex};
    }

    static DnsSd::FoundAddress v6(const std::string& text, std::uint32_t scope,
                                  int interfaceIndex = 2, std::uint16_t port = 4445)
    {
        return {ipv6Address(text, scope, port), interfaceIndex};
    }

    const ServiceEndpoint service{"Quillbox", "_smb._tcp", "local"};
    Recorder<DnsSd::ResolveUpdate> resolved;
    std::unique_ptr<DnsSd::Subscription> resolution =
        dnsSd->resolve(service, dispatch.mainQueue(), resolved.handler());
};

} // namespace

TEST_F(ResolutionTest, asksForTheLocationAndThenForBothFamilies)
{
    EXPECT_EQ(resolved.count(), 0U) << "whether there is an engine is not known yet";
    up();
    EXPECT_EQ(engine.only<LocationRequest>(),
              (LocationRequest{location(), {"Quillbox", "_smb._tcp", "local"}}));
    locate("phone.local");
    EXPECT_NE(query("phone.local", Family::IPv4), 0U);
    EXPECT_NE(query("phone.local", Family::IPv6), 0U);
    find("phone.local", "192.168.1.7");
    EXPECT_EQ(resolved.last().addresses, Addresses{v4("192.168.1.7")});
}

TEST_F(ResolutionTest, givesALinkLocalAddressTheScopeOfItsLink)
{
    up();
    locate("phone.local");
    find("phone.local", "fe80::7", kWiredIPv6);
    find("phone.local", "fe80::7", {3, Family::IPv6});
    find("phone.local", "fe80::7", {1, Family::IPv6});
    find("phone.local", "2001:db8::7", kWiredIPv6);
    find("phone.local", "::ffff:10.0.0.1", kWiredIPv6);
    EXPECT_EQ(resolved.last().addresses,
              (Addresses{v6("fe80::7", 2), v6("fe80::7", 3, 3), v6("fe80::7", 1, 1),
                         v6("2001:db8::7", 0), v6("::ffff:10.0.0.1", 0)}));
}

TEST_F(ResolutionTest, listsAnAddressOnceAnInterfaceAndKeepsTheOrder)
{
    up();
    locate("phone.local");
    find("phone.local", "2001:db8::7", kWiredIPv6);
    find("phone.local", "10.0.0.7", kWired);
    find("phone.local", "10.0.0.7", kWiredIPv6);
    find("phone.local", "10.0.0.7", kWireless);
    const Addresses all{v6("2001:db8::7", 0), v4("10.0.0.7"), v4("10.0.0.7", 3)};
    EXPECT_EQ(resolved.last().addresses, all);
    lose("phone.local", "10.0.0.7", kWired);
    EXPECT_EQ(resolved.last().addresses, all) << "the other carrier still brings it";
    lose("phone.local", "10.0.0.7", kWiredIPv6);
    EXPECT_EQ(resolved.last().addresses, (Addresses{v6("2001:db8::7", 0), v4("10.0.0.7", 3)}));
}

TEST_F(ResolutionTest, namesTheHostsThatTheAddressesAreOf)
{
    up();
    locate("phone.local");
    locate("silent.local");
    EXPECT_TRUE(resolved.last().hosts.empty()) << "no address is known";
    find("phone.local", "fe80::7", kWiredIPv6);
    EXPECT_EQ(resolved.last().hosts, (std::vector<HostEndpoint>{{"phone.local", 4445}}));
    locate("second.local", 4446);
    find("second.local", "10.0.0.8");
    EXPECT_EQ(resolved.last().hosts,
              (std::vector<HostEndpoint>{{"phone.local", 4445}, {"second.local", 4446}}));
    lose("phone.local", "fe80::7", kWiredIPv6);
    EXPECT_EQ(resolved.last().hosts, (std::vector<HostEndpoint>{{"second.local", 4446}}));
}

TEST_F(ResolutionTest, settlesByFamily)
{
    up();
    locate("phone.local");
    find("phone.local", "10.0.0.7");
    EXPECT_FALSE(resolved.last().isSettledIPv4);
    emit(Settled{query("phone.local", Family::IPv4)});
    EXPECT_TRUE(resolved.last().isSettledIPv4);
    EXPECT_FALSE(resolved.last().isSettledIPv6);
    emit(Settled{query("phone.local", Family::IPv6)});
    EXPECT_TRUE(resolved.last().isSettledIPv6);
    locate("second.local");
    EXPECT_FALSE(resolved.last().isSettledIPv4) << "one host has not answered yet";
}

TEST_F(ResolutionTest, settlesWithNothingWhenThereIsNoLocation)
{
    up();
    EXPECT_FALSE(resolved.last().isSettledIPv4);
    emit(Settled{location()});
    EXPECT_EQ(resolved.last(), (DnsSd::ResolveUpdate{{}, true, true, {}}));
}

TEST_F(ResolutionTest, takesSilenceForSettledAfterAWhile)
{
    up();
    dispatch.advance(kSettlingLimit - 1ms);
    EXPECT_FALSE(resolved.last().isSettledIPv4);
    dispatch.advance(1ms);
    EXPECT_TRUE(resolved.last().isSettledIPv4);
    EXPECT_TRUE(resolved.last().isSettledIPv6);
}

TEST_F(ResolutionTest, countsTheTimeForSettlingFromTheLastQuery)
{
    up();
    dispatch.advance(kSettlingLimit - 1s);
    down();
    up();
    dispatch.advance(kSettlingLimit - 1ms);
    EXPECT_FALSE(resolved.last().isSettledIPv4);
    dispatch.advance(1ms);
    EXPECT_TRUE(resolved.last().isSettledIPv4);
}

TEST_F(ResolutionTest, isNotNotifiedOfHostsThatItLeft)
{
    // Fills freed memory, so that a call of a destroyed object crashes.
    mallopt(M_PERTURB, 0xa5);
    up();
    locate("old.local");
    Recorder<DnsSd::ResolveUpdate> host;
    const auto ask =
        dnsSd->resolve(HostEndpoint{"old.local", 0}, dispatch.mainQueue(), host.handler());
    dispatch.runAll();
    locate("new.local");
    emit(LocationAnswer{location(), Change::Lost, kWired, {"old.local", 4445}});
    resolution = nullptr;
    dispatch.runAll();
    find("old.local", "10.0.0.7");
    EXPECT_EQ(host.last().addresses, Addresses{v4("10.0.0.7", 2, 0)});
    mallopt(M_PERTURB, 0);
}

TEST_F(ResolutionTest, passesAPortOfZeroOn)
{
    up();
    locate("phone.local", 0);
    find("phone.local", "10.0.0.7");
    EXPECT_EQ(resolved.last().addresses, Addresses{v4("10.0.0.7", 2, 0)});
}

TEST_F(ResolutionTest, asksNothingOfATargetThatIsNoHost)
{
    up();
    locate(".");
    locate("");
    locate(std::string(2000, 'x'));
    emit(Settled{location()});
    EXPECT_TRUE(engine.standing<AddressRequest>().empty());
    EXPECT_EQ(resolved.last(), (DnsSd::ResolveUpdate{{}, true, true, {}}));
}

TEST_F(ResolutionTest, asksFourHostsOfOneService)
{
    up();
    for (int i = 0; i < 1000; ++i)
        locate("phone" + std::to_string(i) + ".local");
    EXPECT_EQ(engine.standing<AddressRequest>().size(), 2 * kMaximumHosts);
    EXPECT_NE(query("phone0.local", Family::IPv4), 0U);
}

TEST_F(ResolutionTest, tells16AddressesOfAFamily)
{
    up();
    locate("phone.local");
    locate("second.local");
    for (int i = 0; i < 250; ++i) {
        find("phone.local", "10.0.0." + std::to_string(i));
        find("second.local", "10.0.1." + std::to_string(i));
        find("phone.local", "2001:db8::" + std::to_string(i));
    }
    const auto isIPv4 = [](const auto& found) { return found.address.size() == 16; };
    const Addresses& all = resolved.last().addresses;
    EXPECT_EQ(all.size(), 2 * kMaximumAddresses);
    EXPECT_EQ(static_cast<std::size_t>(std::ranges::count_if(all, isIPv4)), kMaximumAddresses);
}

TEST_F(ResolutionTest, keepsABoundedNumberOfRecords)
{
    up();
    locate("phone.local");
    for (int i = 0; i < 10'000; ++i)
        find("phone.local", "10.0." + std::to_string(i / 250) + "." + std::to_string(i % 250));
    for (std::size_t i = 0; i < kMaximumRecords; ++i)
        lose("phone.local", "10.0.0." + std::to_string(i));
    EXPECT_TRUE(resolved.last().addresses.empty()) << "what was beyond the limit is not kept";
}

TEST_F(ResolutionTest, countsARecordThatComesAgainOnce)
{
    up();
    for (std::size_t count = 0; count < kMaximumRecords; ++count)
        locate("phone.local");
    locate("PHONE.local");
    locate("second.local");
    EXPECT_NE(query("second.local", Family::IPv4), 0U);
    emit(LocationAnswer{location(), Change::Lost, kWired, {"Phone.local", 4445}});
    EXPECT_EQ(query("phone.local", Family::IPv4), 0U);
}

TEST_F(ResolutionTest, tells16AddressesThoughTwoCarriersBringThem)
{
    up();
    locate("phone.local");
    for (std::size_t number = 1; number <= kMaximumAddresses; ++number) {
        find("phone.local", "10.0.0." + std::to_string(number), kWired);
        find("phone.local", "10.0.0." + std::to_string(number), kWiredIPv6);
    }
    EXPECT_EQ(resolved.last().addresses.size(), kMaximumAddresses);
}

TEST_F(ResolutionTest, keepsServicesOfTwoDomainsApart)
{
    ServiceEndpoint elsewhere = service;
    elsewhere.domain = "example.com";
    const auto other = dnsSd->resolve(elsewhere, dispatch.mainQueue(), [](const auto&) {});
    up();
    EXPECT_EQ(engine.standing<LocationRequest>().size(), 2U);
}

TEST_F(ResolutionTest, startsOverWithAnEngineThatRestartedUnnoticed)
{
    up();
    locate("phone.local");
    find("phone.local", "10.0.0.7");
    up();
    emit(LocationAnswer{location(), Change::Lost, kWired, {"phone.local", 4445}});
    emit(AddressAnswer{query("phone.local", Family::IPv4), Change::Lost, kWired,
                       address("10.0.0.7")});
    EXPECT_EQ(resolved.last().addresses, Addresses{v4("10.0.0.7")})
        << "no answer of the new engine";
    find("phone.local", "10.0.0.8");
    EXPECT_EQ(resolved.last().addresses, Addresses{v4("10.0.0.8")});
    locate("other.local");
    EXPECT_EQ(query("phone.local", Family::IPv4), 0U);
}

TEST_F(ResolutionTest, retriesOnceWhereTheEngineComesBackDuringAPause)
{
    up();
    emit(Failed{location(), DnsSdError::TooManyEntries});
    down();
    const auto asked = engine.count<LocationRequest>();
    dispatch.advance(500ms);
    EXPECT_EQ(engine.count<LocationRequest>(), asked) << "nobody is there to ask";
    up();
    emit(Failed{location(), DnsSdError::TooManyEntries});
    down();
    up();
    dispatch.advance(500ms);
    EXPECT_EQ(engine.standing<LocationRequest>().size(), 1U);
}

TEST_F(ResolutionTest, asksOncePerHostWhateverThePorts)
{
    up();
    locate("phone.local", 4445);
    locate("PHONE.local", 4446);
    EXPECT_EQ(engine.standing<AddressRequest>().size(), 2U);
    find("phone.local", "10.0.0.7");
    EXPECT_EQ(resolved.last().addresses,
              (Addresses{v4("10.0.0.7", 2, 4445), v4("10.0.0.7", 2, 4446)}));
    emit(LocationAnswer{location(), Change::Lost, kWired, {"phone.local", 4445}});
    EXPECT_EQ(resolved.last().addresses, Addresses{v4("10.0.0.7", 2, 4446)});
    find("phone.local", "10.0.0.8");
    EXPECT_EQ(resolved.last().addresses.size(), 2U) << "it still listens to the host that is left";
}

TEST_F(ResolutionTest, followsAServiceThatMoves)
{
    up();
    locate("old.local");
    find("old.local", "10.0.0.7");
    locate("new.local");
    emit(LocationAnswer{location(), Change::Lost, kWired, {"old.local", 4445}});
    EXPECT_EQ(query("old.local", Family::IPv4), 0U);
    find("new.local", "10.0.0.8");
    EXPECT_EQ(resolved.last().addresses, Addresses{v4("10.0.0.8")});
    emit(LocationAnswer{location(), Change::Lost, kWired, {"new.local", 4445}});
    EXPECT_TRUE(resolved.last().addresses.empty()) << "the service is gone";
}

TEST_F(ResolutionTest, keepsTheLastAddressesWhileTheEngineIsAway)
{
    up();
    locate("phone.local");
    find("phone.local", "10.0.0.7");
    find("phone.local", "10.0.0.8");
    down();
    EXPECT_EQ(resolved.last().error, DnsSdError::EngineUnavailable);
    EXPECT_EQ(resolved.last().addresses.size(), 2U);
    up();
    EXPECT_FALSE(resolved.last().error);
    EXPECT_FALSE(resolved.last().isSettledIPv4);
    EXPECT_EQ(resolved.last().addresses.size(), 2U);
    locate("phone.local");
    find("phone.local", "10.0.0.9");
    EXPECT_EQ(resolved.last().addresses, Addresses{v4("10.0.0.9")});
}

TEST_F(ResolutionTest, keepsTheOldAddressesUntilTheNextEngineHasAskedInVainForLong)
{
    up();
    locate("phone.local");
    find("phone.local", "10.0.0.7");
    emit(Settled{location()});
    emit(Settled{query("phone.local", Family::IPv4)});
    emit(Settled{query("phone.local", Family::IPv6)});
    down();
    up();
    EXPECT_EQ(resolved.last(),
              (DnsSd::ResolveUpdate{{v4("10.0.0.7")}, false, false, {}, {{"phone.local", 4445}}}));
    emit(Settled{location()});
    emit(Settled{query("phone.local", Family::IPv4)});
    emit(Settled{query("phone.local", Family::IPv6)});
    dispatch.advance(kSilenceLimit - 1ms);
    EXPECT_EQ(resolved.last(),
              (DnsSd::ResolveUpdate{{v4("10.0.0.7")}, true, true, {}, {{"phone.local", 4445}}}));
    dispatch.advance(1ms);
    EXPECT_EQ(resolved.last(), (DnsSd::ResolveUpdate{{}, true, true, {}}));
}

TEST_F(ResolutionTest, ignoresAnswersToTheEngineThatWent)
{
    up();
    locate("phone.local");
    const RequestId old = query("phone.local", Family::IPv4);
    down();
    up();
    emit(AddressAnswer{old, Change::Found, kWired, address("10.9.9.9")});
    EXPECT_TRUE(resolved.last().addresses.empty());
    locate("phone.local");
    find("phone.local", "10.0.0.7");
    dispatch.advance(10 * kSilenceLimit);
    EXPECT_EQ(resolved.last().addresses, Addresses{v4("10.0.0.7")}) << "it has answered";
}

TEST_F(ResolutionTest, asksAgainAfterAPauseWhenTheEngineCannot)
{
    up();
    emit(Failed{location(), DnsSdError::TooManyEntries});
    EXPECT_TRUE(resolved.last().isSettledIPv4) << "who waits need not wait for the next try";
    EXPECT_TRUE(engine.standing<LocationRequest>().empty());
    dispatch.advance(500ms);
    locate("phone.local");
    find("phone.local", "10.0.0.7");
    EXPECT_EQ(resolved.last().addresses, Addresses{v4("10.0.0.7")});
}

TEST_F(ResolutionTest, pausesBrieflyAgainAfterAnAnswerAndWithANewEngine)
{
    const auto failTwice = [this] {
        for (const auto pause : {500ms, 1000ms}) {
            const std::size_t asked = engine.count<LocationRequest>();
            emit(Failed{location(), DnsSdError::TooManyEntries});
            dispatch.advance(pause - 1ms);
            EXPECT_EQ(engine.count<LocationRequest>(), asked);
            dispatch.advance(1ms);
            EXPECT_EQ(engine.count<LocationRequest>(), asked + 1);
        }
    };
    up();
    failTwice();
    emit(Settled{location()});
    failTwice();
    down();
    up();
    failTwice();
}

TEST_F(ResolutionTest, keepsWhatItKnewWhileTheEngineRefusesTheQuery)
{
    up();
    locate("phone.local");
    find("phone.local", "10.0.0.7");
    emit(Failed{location(), DnsSdError::TooManyEntries});
    dispatch.advance(500ms);
    EXPECT_EQ(resolved.last().addresses, Addresses{v4("10.0.0.7")});
    locate("other.local");
    EXPECT_EQ(query("phone.local", Family::IPv4), 0U) << "the new answer replaces the old one";
}

TEST_F(ResolutionTest, sharesItsQuestionsWithOthersThatAskTheSame)
{
    up();
    locate("phone.local");
    find("phone.local", "10.0.0.7");
    const std::size_t before = engine.requests().size();
    Recorder<DnsSd::ResolveUpdate> second;
    auto other = dnsSd->resolve(service, dispatch.mainQueue(), second.handler());
    dispatch.runAll();
    EXPECT_EQ(engine.requests().size(), before);
    EXPECT_EQ(second.last().addresses, Addresses{v4("10.0.0.7")});
    resolution = nullptr;
    dispatch.runAll();
    EXPECT_EQ(engine.count<StopRequest>(), 0U);
    other = nullptr;
    dispatch.runAll();
    EXPECT_TRUE(engine.standing<LocationRequest>().empty());
    EXPECT_TRUE(engine.standing<AddressRequest>().empty());
}

TEST_F(ResolutionTest, resolvesAHost)
{
    Recorder<DnsSd::ResolveUpdate> host;
    const auto ask =
        dnsSd->resolve(HostEndpoint{"phone.local", 0}, dispatch.mainQueue(), host.handler());
    up();
    EXPECT_FALSE(host.last().isSettledIPv4);
    find("phone.local", "10.0.0.7");
    find("phone.local", "fe80::7", kWiredIPv6);
    emit(Settled{query("phone.local", Family::IPv4)});
    EXPECT_EQ(host.last(), (DnsSd::ResolveUpdate{
                               {v4("10.0.0.7", 2, 0), v6("fe80::7", 2, 2, 0)}, true, false, {}}));
}

TEST_F(ResolutionTest, settlesAtOnceForWhatCannotBe)
{
    up();
    Recorder<DnsSd::ResolveUpdate> host;
    const auto first = dnsSd->resolve(HostEndpoint{"", 0}, dispatch.mainQueue(), host.handler());
    Recorder<DnsSd::ResolveUpdate> unnamed;
    const auto second = dnsSd->resolve(ServiceEndpoint{"", "_smb._tcp", "local"},
                                       dispatch.mainQueue(), unnamed.handler());
    dispatch.runAll();
    EXPECT_EQ(host.last(), (DnsSd::ResolveUpdate{{}, true, true, {}}));
    EXPECT_EQ(unnamed.last(), (DnsSd::ResolveUpdate{{}, true, true, {}}));
}

namespace {

/// Questions to an engine link, without a `DnsSd` around them.
class QuestionPoolTest : public testing::Test {
protected:
    QuestionPoolTest() { center.link.start(); }

    FakeDispatch dispatch;
    FakeEngine engine;
    FakeNetworkMonitor monitor;
    RecordingLog log;
    Center center{engine.makeEngine(), dispatch.makeQueue("dns-sd", QualityOfService::Utility),
                  monitor, log};

    const ServiceEndpoint kService{"Quillbox", "_smb._tcp", "local"};

    class Observer final : public QueryObserver {
        void queryChanged() override {}
    } observer;
};

} // namespace

TEST_F(QuestionPoolTest, keepsNoMemoryOfQuestionsThatAreOver)
{
    const auto askAndDrop = [this](const std::string& name, int times) {
        for (int count = 0; count < times; ++count)
            EXPECT_TRUE(
                center.addresses.query({0, name + std::to_string(count), Family::IPv4}, observer));
    };
    askAndDrop("first", 10);
    const auto before = ::mallinfo2().uordblks; // 0 with AddressSanitizer
    askAndDrop("other", 2000);
    EXPECT_LT(::mallinfo2().uordblks, before + 50'000);
}

TEST_F(QuestionPoolTest, tellsNobodyWhoHasGone)
{
    alignas(Resolution) std::array<std::byte, sizeof(Resolution)> place{};
    std::shared_ptr<Resolution> resolution(
        new (place.data()) Resolution(center, {dispatch.mainQueue(), {}}, kService),
        [](Resolution* ended) { std::destroy_at(ended); });
    resolution->start();
    const auto query = center.locations.query({0, kService}, observer);
    resolution.reset();
    place.fill({}); // a call of what was here ends the test
    engine.up();
    dispatch.runAll();
    EXPECT_NE(engine.only<LocationRequest>().id, 0U);
}

} // namespace quillbox
