#include "platform/dial/service_locator.h"
#include "platform/dnssd/dns_sd_error.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_dns_sd.h"
#include "tests/fakes/fake_network_monitor.h"
#include "tests/fakes/socket_addresses.h"

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

constexpr int kLoopback = 1;
constexpr int kWired = 2;
constexpr std::uint16_t kServicePort = 40123;

const HostEndpoint kOnLoopback{"127.23.4.5", kServicePort};
const DnsSd::OwnService kOwn{"office-my-pc-1a2b3c4d.local", kOnLoopback, true};

HostEndpoint serverAt(const std::string& host, std::uint16_t port)
{
    return {host, port};
}

class ServiceLocatorTest : public ::testing::Test {
protected:
    struct LookUp {
        std::string name;
        HostLookup::Done done;
    };

    ServiceLocatorTest()
    {
        monitor.setAddresses({interfaceAddress(kLoopback, "lo", "127.0.0.1"),
                              interfaceAddress(kWired, "eth0", "10.0.0.1"),
                              interfaceAddress(kWired, "eth0", "fe80::1")});
        locate("Quillbox Office");
    }

    void locate(const std::string& name)
    {
        locator->locate(
            name, [this](const std::optional<HostEndpoint>& server) { answers.push_back(server); });
        dispatch.runAll();
    }

    void tellOwn(const std::optional<DnsSd::OwnService>& service)
    {
        ownQueries().back().tell({service});
        dispatch.runAll();
    }

    void tellFound(const std::vector<DnsSd::FoundAddress>& addresses,
                   const std::vector<HostEndpoint>& hosts = {}, bool isSettled = true)
    {
        resolutions().back().tell({addresses, isSettled, isSettled, {}, hosts});
        dispatch.runAll();
    }

    void tellLookedUp(const std::vector<SocketAddress>& addresses, std::error_code error = {})
    {
        lookUps.back().done(addresses, error);
        dispatch.runAll();
    }

    static DnsSd::FoundAddress found(const std::string& text, int interfaceIndex = kWired,
                                     std::uint16_t port = kServicePort)
    {
        if (text.find(':') == std::string::npos)
            return {ipv4Address(text, port), interfaceIndex};
        const bool isLinkLocal = text.starts_with("fe80");
        return {
            ipv6Address(text, isLinkLocal ? static_cast<std::uint32_t>(interfaceIndex) : 0, port),
            interfaceIndex};
    }

    std::vector<FakeDnsSd::Resolution> resolutions() const { return active(dnsSd.resolutions()); }
    std::vector<FakeDnsSd::OwnQuery> ownQueries() const { return active(dnsSd.ownQueries()); }

    using Answers = std::vector<std::optional<HostEndpoint>>;

    FakeDispatch dispatch;
    FakeDnsSd dnsSd;
    FakeNetworkMonitor monitor;
    OwnPorts ownPorts;
    std::vector<LookUp> lookUps;
    bool resolvesFoundNames = false;
    Answers answers;
    std::unique_ptr<ServiceLocator> locator = makeServiceLocator({
        .dnsSd = dnsSd,
        .monitor = monitor,
        .ownPorts = ownPorts,
        .lookUp =
            [this](const std::string& name, HostLookup::Done done) {
                lookUps.push_back({name, std::move(done)});
            },
        .resolvesFoundNames = [this] { return resolvesFoundNames; },
        .queue = dispatch.mainQueue(),
    });
};

} // namespace

TEST_F(ServiceLocatorTest, looksInTheOwnBooksFirst)
{
    ASSERT_EQ(ownQueries().size(), 1U);
    EXPECT_EQ(ownQueries().front().request, "Quillbox Office._smb._tcp");
    EXPECT_EQ(ownQueries().front().queue, dispatch.mainQueue());
    EXPECT_TRUE(resolutions().empty());
    EXPECT_TRUE(answers.empty());
}

TEST_F(ServiceLocatorTest, tellsAnOwnServiceByTheNameOfItsHost)
{
    tellOwn(kOwn);
    ASSERT_EQ(lookUps.size(), 1U);
    EXPECT_EQ(lookUps[0].name, kOwn.hostName);
    tellLookedUp({ipv4Address("10.0.0.1"), ipv4Address("127.23.4.5"), ipv6Address("fe80::1", 2)});
    EXPECT_EQ(answers, Answers{serverAt(kOwn.hostName, kServicePort)});
    EXPECT_TRUE(resolutions().empty()) << "nobody on the network was asked";
    EXPECT_TRUE(ownQueries().empty());
}

TEST_F(ServiceLocatorTest, tellsAnOwnServiceByItsAddressWhereItsHostIsNotKnown)
{
    tellOwn(kOwn);
    tellLookedUp({}, std::make_error_code(std::errc::address_not_available));
    EXPECT_EQ(answers, Answers{kOnLoopback});
}

TEST_F(ServiceLocatorTest, tellsAnOwnServiceByItsAddressWhereAnyoneElseAnswersForItsHost)
{
    tellOwn(kOwn);
    tellLookedUp({ipv4Address("10.0.0.1"), ipv4Address("10.0.0.66")});
    EXPECT_EQ(answers, Answers{kOnLoopback});
}

TEST_F(ServiceLocatorTest, doesNotWaitLongForTheNameService)
{
    tellOwn(kOwn);
    dispatch.advance(kHostLimit - 1ms);
    EXPECT_TRUE(answers.empty());
    dispatch.advance(1ms);
    EXPECT_EQ(answers, Answers{kOnLoopback});
    tellLookedUp({ipv4Address("10.0.0.1")});
    EXPECT_EQ(answers.size(), 1U) << "a late answer is ignored";
}

TEST_F(ServiceLocatorTest, tellsTheHostWhereTheNameServiceIsSlowToResolveIt)
{
    resolvesFoundNames = true;
    tellOwn(kOwn);
    dispatch.advance(kHostLimit - 1ms);
    EXPECT_TRUE(answers.empty());
    dispatch.advance(1ms);
    EXPECT_EQ(answers, Answers{serverAt(kOwn.hostName, kServicePort)});

    answers.clear();
    locate("Other");
    tellOwn(std::nullopt);
    tellFound({found("10.0.0.7")}, {{"phone.local", kServicePort}});
    dispatch.advance(kHostLimit);
    EXPECT_EQ(answers, Answers{serverAt("phone.local", kServicePort)});
}

TEST_F(ServiceLocatorTest, tellsTheAddressWhereTheNameServiceDoesNotKnowTheHost)
{
    // As with a DNS server that is responsible for ".local", whom libnss-mdns leaves these names
    // to.
    resolvesFoundNames = true;
    tellOwn(kOwn);
    tellLookedUp({}, std::make_error_code(std::errc::address_not_available));
    EXPECT_EQ(answers, Answers{kOnLoopback});
}

TEST_F(ServiceLocatorTest, tellsTheAddressWhereASlowHostMayBeSomethingElse)
{
    resolvesFoundNames = true;
    const auto tellSlowly = [this](const std::vector<DnsSd::FoundAddress>& addresses,
                                   const std::vector<HostEndpoint>& hosts, bool isSettled) {
        answers.clear();
        locate("Other");
        tellOwn(std::nullopt);
        tellFound(addresses, hosts, isSettled);
        dispatch.advance(kHostLimit);
        return answers;
    };
    const HostEndpoint host{"phone.local", kServicePort};
    const Answers inNumbers{serverAt("10.0.0.7", kServicePort)};

    EXPECT_EQ(tellSlowly({found("10.0.0.7")}, {host}, false), inNumbers) << "IPv6 is not known";
    EXPECT_EQ(tellSlowly({found("10.0.0.7"), found("127.0.0.1")}, {host}, true), inNumbers);
    EXPECT_EQ(tellSlowly({found("10.0.0.7")}, {host, {"other.local", 445}}, true), inNumbers);

    answers.clear();
    locate("Other");
    tellOwn(std::nullopt);
    resolutions().back().tell({{found("10.0.0.7")}, false, true, {}, {host}});
    dispatch.runAll();
    dispatch.advance(kHostLimit);
    EXPECT_EQ(answers, inNumbers) << "not all of IPv4 is known";
}

TEST_F(ServiceLocatorTest, tellsTheAddressThatItFoundWhenTheTimeIsUpDuringTheLookup)
{
    tellOwn(std::nullopt);
    dispatch.advance(kSearchLimit - kHostLimit / 2);
    tellFound({found("10.0.0.7")}, {{"phone.local", kServicePort}});
    ASSERT_EQ(lookUps.size(), 1U);
    tellFound({found("10.0.0.8")}, {{"phone.local", kServicePort}});
    dispatch.advance(kHostLimit / 2);
    EXPECT_EQ(answers, Answers{serverAt("10.0.0.7", kServicePort)});
}

TEST_F(ServiceLocatorTest, learnsTheOtherAddressesDuringTheLookup)
{
    resolvesFoundNames = true;
    tellOwn(std::nullopt);
    tellFound({found("10.0.0.7")}, {{"phone.local", kServicePort}}, false);
    tellFound({found("10.0.0.7"), found("2001:db8::7")}, {{"phone.local", kServicePort}});
    dispatch.advance(kHostLimit);
    EXPECT_EQ(answers, Answers{serverAt("phone.local", kServicePort)});
}

TEST_F(ServiceLocatorTest, waitsUntilItsOwnServiceIsPublished)
{
    auto unpublished = kOwn;
    unpublished.isPublished = false;
    unpublished.hostName = "office-elsewhere-1a2b3c4d.local";
    tellOwn(unpublished);
    dispatch.advance(kPublicationLimit - 1ms);
    EXPECT_TRUE(answers.empty());
    EXPECT_TRUE(lookUps.empty());
    tellOwn(kOwn);
    dispatch.advance(1ms);
    EXPECT_TRUE(answers.empty());
    tellLookedUp({ipv4Address("10.0.0.1")});
    EXPECT_EQ(answers, Answers{serverAt(kOwn.hostName, kServicePort)});
}

TEST_F(ServiceLocatorTest, tellsTheAddressOfAnOwnServiceThatIsNotPublishedInTime)
{
    auto unpublished = kOwn;
    unpublished.isPublished = false;
    tellOwn(unpublished);
    dispatch.advance(kPublicationLimit);
    EXPECT_EQ(answers, Answers{kOnLoopback});
}

TEST_F(ServiceLocatorTest, resolvesAnOwnServiceThatGoesAwayBeforeItIsPublished)
{
    auto unpublished = kOwn;
    unpublished.isPublished = false;
    tellOwn(unpublished);
    tellOwn(std::nullopt);
    dispatch.advance(kPublicationLimit);
    ASSERT_TRUE(answers.empty()) << "nobody listens there any more";
    tellFound({found("10.0.0.7")});
    EXPECT_EQ(answers, Answers{serverAt("10.0.0.7", kServicePort)});
}

TEST_F(ServiceLocatorTest, tellsNoneOfAnOwnServiceThatIsGoneWhenTheTimeIsUp)
{
    auto unpublished = kOwn;
    unpublished.isPublished = false;
    tellOwn(unpublished);
    tellOwn(std::nullopt);
    dispatch.advance(kSearchLimit);
    EXPECT_EQ(answers, Answers{std::nullopt});
}

TEST_F(ServiceLocatorTest, tellsTheAddressOfAnOwnServiceThatIsNotPublishedWhenTheTimeIsUp)
{
    auto unpublished = kOwn;
    unpublished.isPublished = false;
    tellOwn(std::nullopt);
    tellFound({});
    dispatch.advance(kSearchLimit - 1ms);
    tellOwn(unpublished);
    dispatch.advance(1ms);
    EXPECT_EQ(answers, Answers{kOnLoopback});
}

TEST_F(ServiceLocatorTest, prefersItsOwnServiceToOneThatIsBeingResolved)
{
    tellOwn(std::nullopt);
    const FakeDnsSd::Resolution resolution = resolutions().front();
    tellOwn(kOwn);
    EXPECT_TRUE(resolutions().empty());
    resolution.tell({{found("10.0.0.7")}, true, true, {}});
    dispatch.runAll();
    tellLookedUp({ipv4Address("10.0.0.1")});
    EXPECT_EQ(answers, Answers{serverAt(kOwn.hostName, kServicePort)});
}

TEST_F(ServiceLocatorTest, resolvesWhatIsNotItsOwn)
{
    tellOwn(std::nullopt);
    ASSERT_EQ(resolutions().size(), 1U);
    EXPECT_EQ(resolutions().front().request,
              (ServiceEndpoint{"Quillbox Office", "_smb._tcp", "local"}));
    EXPECT_EQ(resolutions().front().queue, dispatch.mainQueue());
    tellFound({found("10.0.0.7")}, {{"phone.local", kServicePort}});
    ASSERT_EQ(lookUps.size(), 1U);
    EXPECT_EQ(lookUps[0].name, "phone.local");
    tellLookedUp({ipv4Address("10.0.0.7")});
    EXPECT_EQ(answers, Answers{serverAt("phone.local", kServicePort)});
    EXPECT_TRUE(resolutions().empty());
}

TEST_F(ServiceLocatorTest, tellsAnotherServiceByItsAddressWhereItsHostIsSomethingElse)
{
    tellOwn(std::nullopt);
    tellFound({found("10.0.0.7"), found("10.0.0.8")}, {{"phone.local", kServicePort}});
    tellLookedUp({ipv4Address("10.0.0.7"), ipv4Address("127.0.0.1")});
    EXPECT_EQ(answers, Answers{serverAt("10.0.0.7", kServicePort)});
}

TEST_F(ServiceLocatorTest, asksTheNameServiceForNothingButLocalHosts)
{
    for (const std::string& host :
         {std::string("localhost"), std::string("intranet.example.org"), std::string(".local"),
          std::string("a.b.local"), std::string("local"), std::string("-x y.local"),
          std::string("a\\.b.local"), std::string("phone.local."),
          std::string("ph\xc3\xb6ne.local")}) {
        answers.clear();
        locate("Other");
        tellOwn(std::nullopt);
        tellFound({found("10.0.0.7")}, {{host, kServicePort}});
        EXPECT_EQ(answers, Answers{serverAt("10.0.0.7", kServicePort)}) << host;
    }
    EXPECT_TRUE(lookUps.empty());
}

TEST_F(ServiceLocatorTest, takesAHostOfThePortThatIsTold)
{
    tellOwn(std::nullopt);
    tellFound({found("10.0.0.7", kWired, 445)}, {{"other.local", 4445}, {"phone.local", 445}});
    EXPECT_EQ(lookUps.at(0).name, "phone.local");
    tellLookedUp({ipv4Address("10.0.0.7")});
    EXPECT_EQ(answers, Answers{serverAt("phone.local", 445)});
}

TEST_F(ServiceLocatorTest, takesTheFirstAddressOfIPv4AtOnce)
{
    tellOwn(std::nullopt);
    tellFound({found("2001:db8::7")}, {}, false);
    EXPECT_TRUE(answers.empty());
    tellFound({found("2001:db8::7"), found("10.0.0.7"), found("10.0.0.8")}, {}, false);
    EXPECT_EQ(answers, Answers{serverAt("10.0.0.7", kServicePort)});
}

TEST_F(ServiceLocatorTest, takesAnAddressOfIPv6WhereThereIsNothingElse)
{
    tellOwn(std::nullopt);
    tellFound({found("2001:db8::7")}, {}, false);
    tellFound({found("2001:db8::7")});
    EXPECT_EQ(answers, Answers{serverAt("2001:db8::7", kServicePort)});
}

TEST_F(ServiceLocatorTest, givesALinkLocalAddressItsScope)
{
    monitor.setAddresses({interfaceAddress(kLoopback, "lo", "127.0.0.1")});
    tellOwn(std::nullopt);
    // Every machine has the loopback interface, with index 1.
    tellFound({found("fe80::7", kLoopback)});
    EXPECT_EQ(answers, Answers{serverAt("fe80::7%lo", kServicePort)});
}

TEST_F(ServiceLocatorTest, tellsNoAddressThatNoConnectionMayBeOpenedTo)
{
    const auto ownPort = ownPorts.add(40999);
    tellOwn(std::nullopt);
    tellFound({found("127.0.0.1"), found("0.0.0.0"), found("224.0.0.251"), found("255.255.255.255"),
               found("::1"), found("::"), found("ff02::fb"), found("10.0.0.7", kWired, 0),
               found("10.0.0.1", kWired, 40999)},
              {{"phone.local", kServicePort}});
    EXPECT_TRUE(answers.empty());
    EXPECT_TRUE(lookUps.empty());
    dispatch.advance(kSearchLimit);
    EXPECT_EQ(answers, Answers{std::nullopt});
}

TEST_F(ServiceLocatorTest, tellsALoopbackAddressThatThisComputerItselfAnnounced)
{
    tellOwn(std::nullopt);
    tellFound({found("127.0.0.9", kLoopback)});
    EXPECT_EQ(answers, Answers{serverAt("127.0.0.9", kServicePort)});
}

TEST_F(ServiceLocatorTest, givesASlowServiceAllItsTime)
{
    tellOwn(std::nullopt);
    tellFound({});
    resolutions().back().tell({{}, false, false, DnsSdError::EngineUnavailable});
    dispatch.advance(kSearchLimit - 1ms);
    EXPECT_TRUE(answers.empty());
    tellFound({found("10.0.0.7")});
    EXPECT_EQ(answers, Answers{serverAt("10.0.0.7", kServicePort)});
    dispatch.advance(10s);
    EXPECT_EQ(answers.size(), 1U);
}

TEST_F(ServiceLocatorTest, takesWhatItHasWhenTheTimeIsUp)
{
    tellOwn(std::nullopt);
    tellFound({found("2001:db8::7")}, {}, false);
    dispatch.advance(kSearchLimit);
    EXPECT_EQ(answers, Answers{serverAt("2001:db8::7", kServicePort)});
}

TEST_F(ServiceLocatorTest, tellsNoneOfAServiceThatIsNotFoundInTime)
{
    tellOwn(std::nullopt);
    dispatch.advance(kSearchLimit);
    EXPECT_EQ(answers, Answers{std::nullopt});
    EXPECT_TRUE(ownQueries().empty());
    EXPECT_TRUE(resolutions().empty());
}

TEST_F(ServiceLocatorTest, isDoneInSixSecondsAtTheLatest)
{
    tellOwn(std::nullopt);
    dispatch.advance(5999ms);
    tellFound({found("10.0.0.7")}, {{"phone.local", kServicePort}});
    EXPECT_EQ(lookUps.size(), 1U);
    dispatch.advance(1ms);
    EXPECT_EQ(answers, Answers{serverAt("10.0.0.7", kServicePort)});
}

TEST_F(ServiceLocatorTest, findsSeveralServicesAtOnce)
{
    locate("Quillbox Kitchen");
    ASSERT_EQ(ownQueries().size(), 2U);
    const FakeDnsSd::OwnQuery office = ownQueries().front();
    tellOwn(DnsSd::OwnService{"kitchen.local", {"127.1.1.1", 1}, true});
    office.tell({kOwn});
    dispatch.runAll();
    ASSERT_EQ(lookUps.size(), 2U);
    EXPECT_EQ(lookUps[0].name, "kitchen.local");
    lookUps[1].done({}, {});
    lookUps[0].done({ipv4Address("10.0.0.1")}, {});
    dispatch.runAll();
    EXPECT_EQ(answers, (Answers{kOnLoopback, serverAt("kitchen.local", 1)}));
}

TEST_F(ServiceLocatorTest, isSilentOnceItIsDropped)
{
    tellOwn(kOwn);
    locator = nullptr;
    tellLookedUp({ipv4Address("10.0.0.1")});
    dispatch.advance(10s);
    EXPECT_TRUE(answers.empty());
    EXPECT_TRUE(ownQueries().empty());
}

TEST_F(ServiceLocatorTest, mayBeDroppedByACompletion)
{
    locator->locate("Quillbox", [this](const std::optional<HostEndpoint>& server) {
        locator = nullptr;
        answers.push_back(server);
    });
    dispatch.runAll();
    tellOwn(kOwn);
    tellLookedUp({});
    EXPECT_EQ(answers, Answers{kOnLoopback});
}

TEST_F(ServiceLocatorTest, mayBeAskedAgainByACompletion)
{
    locator->locate("Quillbox", [this](const std::optional<HostEndpoint>&) { locate("Again"); });
    dispatch.runAll();
    tellOwn(kOwn);
    tellLookedUp({});
    ASSERT_EQ(ownQueries().size(), 2U);
    EXPECT_EQ(ownQueries().back().request, "Again._smb._tcp");
}

} // namespace quillbox
