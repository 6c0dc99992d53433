#include "tests/platform/dnssd/conformance.h"

#include "platform/dnssd/dns_sd_error.h"
#include "tests/platform/dnssd/recorder.h"

#include <algorithm>
#include <cstring>
#include <set>

#include <arpa/inet.h>
#include <netinet/in.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

constexpr auto kLimit = 15s;
constexpr std::uint16_t kPort = 4445;

using BrowseState = DnsSd::BrowseUpdate::State;
using RegistrationState = DnsSd::RegistrationUpdate::State;
using Browses = Recorder<DnsSd::BrowseUpdate>;
using Resolutions = Recorder<DnsSd::ResolveUpdate>;
using Registrations = Recorder<DnsSd::RegistrationUpdate>;

ServiceRegistration smb(const std::string& name)
{
    return {name, "_smb._tcp"};
}

ServiceEndpoint endpoint(const std::string& name)
{
    return {name, "_smb._tcp", "local"};
}

std::set<std::string> namesIn(const DnsSd::BrowseUpdate& update)
{
    std::set<std::string> names;
    for (const ServiceEndpoint& service : update.services)
        names.insert(service.name);
    return names;
}

bool isReady(const Registrations& log, const std::string& name)
{
    const auto last = log.last();
    return last.state == RegistrationState::Ready && last.name == name;
}

/// The addresses of the given family.
std::vector<DnsSd::FoundAddress> ofFamily(int family, const DnsSd::ResolveUpdate& update)
{
    std::vector<DnsSd::FoundAddress> result;
    for (const DnsSd::FoundAddress& found : update.addresses) {
        if (familyOf(found.address) == family)
            result.push_back(found);
    }
    return result;
}

sockaddr_in6 asIPv6(const DnsSd::FoundAddress& found)
{
    sockaddr_in6 result{};
    std::memcpy(&result, found.address.data(),
                std::min<std::size_t>(sizeof result, found.address.size()));
    return result;
}

sockaddr_in asIPv4(const DnsSd::FoundAddress& found)
{
    sockaddr_in result{};
    std::memcpy(&result, found.address.data(),
                std::min<std::size_t>(sizeof result, found.address.size()));
    return result;
}

bool isOnLoopback(const DnsSd::FoundAddress& found)
{
    return (ntohl(asIPv4(found).sin_addr.s_addr) >> 24U) == 127;
}

} // namespace

TEST_P(DnsSdConformance, listsAServiceOnceHoweverManyCarryIt)
{
    const Registrations registered;
    const auto registration = harness->there().registerService(
        smb("Quillbox Office"), kPort, harness->queue(), registered.handler());
    const Browses browsed;
    const auto browse = harness->here().browse("_smb._tcp", harness->queue(), browsed.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return !browsed.last().services.empty(); }, kLimit));
    harness->waitUntil([] { return false; }, 1500ms);
    EXPECT_EQ(browsed.last().state, BrowseState::Ready);
    EXPECT_EQ(browsed.last().services, std::vector{endpoint("Quillbox Office")});
}

TEST_P(DnsSdConformance, seesAServiceThatAppearsWhileBrowsing)
{
    const Browses browsed;
    const auto browse = harness->here().browse("_smb._tcp", harness->queue(), browsed.handler());
    ASSERT_TRUE(harness->waitUntil(
        [&] { return browsed.count() > 0 && browsed.last().state == BrowseState::Ready; }, kLimit));
    const Registrations registered;
    const auto registration = harness->there().registerService(smb("Late"), kPort, harness->queue(),
                                                               registered.handler());
    EXPECT_TRUE(harness->waitUntil(
        [&] { return namesIn(browsed.last()) == std::set<std::string>{"Late"}; }, kLimit));
}

TEST_P(DnsSdConformance, browsesOneTypeOnly)
{
    const Registrations registered;
    const auto other = harness->there().registerService({"Other", "_quillbox._tcp"}, kPort,
                                                        harness->queue(), registered.handler());
    const auto registration = harness->there().registerService(
        smb("Wanted"), kPort, harness->queue(), registered.handler());
    const Browses browsed;
    const auto browse = harness->here().browse("_smb._tcp", harness->queue(), browsed.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return !browsed.last().services.empty(); }, kLimit));
    harness->waitUntil([] { return false; }, 1500ms);
    EXPECT_EQ(namesIn(browsed.last()), (std::set<std::string>{"Wanted"}));
}

TEST_P(DnsSdConformance, failsForATypeThatCannotBe)
{
    const Browses browsed;
    const auto browse = harness->here().browse("smb", harness->queue(), browsed.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return browsed.count() > 0; }, kLimit));
    EXPECT_EQ(browsed.last().state, BrowseState::Failed);
    EXPECT_EQ(browsed.last().error, DnsSdError::InvalidType);
}

TEST_P(DnsSdConformance, resolvesEachFamilyWithPortAndScope)
{
    const Registrations registered;
    const auto registration = harness->there().registerService(
        smb("Quillbox"), kPort, harness->queue(), registered.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return isReady(registered, "Quillbox"); }, kLimit));
    const Resolutions resolved;
    const auto resolution =
        harness->here().resolve(endpoint("Quillbox"), harness->queue(), resolved.handler());
    ASSERT_TRUE(harness->waitUntil(
        [&] {
            const auto last = resolved.last();
            return !ofFamily(AF_INET, last).empty() && !ofFamily(AF_INET6, last).empty()
                   && last.isSettledIPv4 && last.isSettledIPv6;
        },
        kLimit));
    for (const auto& found : ofFamily(AF_INET, resolved.last())) {
        EXPECT_EQ(ntohs(asIPv4(found).sin_port), kPort);
        EXPECT_FALSE(isOnLoopback(found));
        EXPECT_GT(found.interfaceIndex, 0);
    }
    std::size_t linkLocals = 0;
    for (const auto& found : ofFamily(AF_INET6, resolved.last())) {
        const sockaddr_in6 address = asIPv6(found);
        EXPECT_EQ(ntohs(address.sin6_port), kPort);
        const bool isLinkLocal = IN6_IS_ADDR_LINKLOCAL(&address.sin6_addr);
        EXPECT_EQ(address.sin6_scope_id,
                  isLinkLocal ? static_cast<std::uint32_t>(found.interfaceIndex) : 0);
        linkLocals += isLinkLocal ? 1 : 0;
    }
    EXPECT_GT(linkLocals, 0U);
}

TEST_P(DnsSdConformance, settlesWithNothingForAServiceThatIsNotThere)
{
    const Resolutions resolved;
    const auto resolution =
        harness->here().resolve(endpoint("Nobody"), harness->queue(), resolved.handler());
    ASSERT_TRUE(harness->waitUntil(
        [&] { return resolved.last().isSettledIPv4 && resolved.last().isSettledIPv6; }, kLimit));
    EXPECT_TRUE(resolved.last().addresses.empty());
    EXPECT_FALSE(resolved.last().error);
}

TEST_P(DnsSdConformance, resolvesAHostName)
{
    const Resolutions resolved;
    const auto resolution = harness->here().resolve(HostEndpoint{harness->hostNameThere(), 0},
                                                    harness->queue(), resolved.handler());
    ASSERT_TRUE(
        harness->waitUntil([&] { return !ofFamily(AF_INET, resolved.last()).empty(); }, kLimit));
    EXPECT_EQ(asIPv4(ofFamily(AF_INET, resolved.last()).front()).sin_port, 0);
}

TEST_P(DnsSdConformance, registersSoThatTheOtherHostSeesAndResolvesIt)
{
    const Registrations registered;
    const auto registration =
        harness->here().registerService(smb("Mine"), kPort, harness->queue(), registered.handler());
    const Browses browsed;
    const auto browse = harness->there().browse("_smb._tcp", harness->queue(), browsed.handler());
    EXPECT_TRUE(harness->waitUntil([&] { return isReady(registered, "Mine"); }, kLimit));
    EXPECT_TRUE(harness->waitUntil(
        [&] { return namesIn(browsed.last()) == std::set<std::string>{"Mine"}; }, kLimit));
    const Resolutions resolved;
    const auto resolution =
        harness->there().resolve(endpoint("Mine"), harness->queue(), resolved.handler());
    EXPECT_TRUE(
        harness->waitUntil([&] { return !ofFamily(AF_INET, resolved.last()).empty(); }, kLimit));
}

TEST_P(DnsSdConformance, putsEachRegistrationOnAHostOfItsOwn)
{
    const Registrations first;
    const Registrations second;
    const auto one =
        harness->here().registerService(smb("One"), kPort, harness->queue(), first.handler());
    const auto two =
        harness->here().registerService(smb("Two"), kPort, harness->queue(), second.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return isReady(first, "One") && isReady(second, "Two"); },
                                   kLimit));
    const auto loopbackOf = [](const Resolutions& log) -> std::uint32_t {
        for (const auto& found : ofFamily(AF_INET, log.last())) {
            if (isOnLoopback(found))
                return ntohl(asIPv4(found).sin_addr.s_addr);
        }
        return 0;
    };
    const Resolutions resolvedOne;
    const Resolutions resolvedTwo;
    const auto resolutionOne =
        harness->here().resolve(endpoint("One"), harness->queue(), resolvedOne.handler());
    const auto resolutionTwo =
        harness->here().resolve(endpoint("Two"), harness->queue(), resolvedTwo.handler());
    ASSERT_TRUE(harness->waitUntil(
        [&] { return loopbackOf(resolvedOne) != 0 && loopbackOf(resolvedTwo) != 0; }, kLimit));
    EXPECT_NE(loopbackOf(resolvedOne), loopbackOf(resolvedTwo));
}

TEST_P(DnsSdConformance, findsItsOwnServiceUnderTheNameThatWasAskedFor)
{
    const Registrations theirs;
    const Registrations ours;
    const auto other =
        harness->there().registerService(smb("Taken"), kPort, harness->queue(), theirs.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return isReady(theirs, "Taken"); }, kLimit));
    const auto own =
        harness->here().registerService(smb("Taken"), kPort, harness->queue(), ours.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return isReady(ours, "Taken #2"); }, kLimit));
    const Recorder<std::optional<DnsSd::OwnService>> found;
    const auto question =
        harness->here().findOwn("Taken", "_smb._tcp", harness->queue(), found.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return found.count() > 0; }, kLimit));
    const auto service = found.last();
    ASSERT_TRUE(service);
    EXPECT_EQ(service->onLoopback.port, kPort);

    // The network resolves the service to the same host name.
    const Resolutions resolved;
    const auto resolution =
        harness->here().resolve(endpoint("Taken #2"), harness->queue(), resolved.handler());
    EXPECT_TRUE(harness->waitUntil(
        [&] {
            return resolved.last().hosts == std::vector<HostEndpoint>{{service->hostName, kPort}};
        },
        kLimit));
}

TEST_P(DnsSdConformance, renamesWhenThisComputerHasTheName)
{
    const Registrations first;
    const Registrations second;
    const auto one =
        harness->here().registerService(smb("Twin"), kPort, harness->queue(), first.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return isReady(first, "Twin"); }, kLimit));
    const auto two =
        harness->here().registerService(smb("Twin"), kPort, harness->queue(), second.handler());
    EXPECT_TRUE(harness->waitUntil([&] { return isReady(second, "Twin #2"); }, kLimit));
    EXPECT_TRUE(isReady(first, "Twin"));
}

TEST_P(DnsSdConformance, renamesWhenAnotherComputerHasTheName)
{
    const Registrations theirs;
    const Registrations ours;
    const auto other =
        harness->there().registerService(smb("Taken"), kPort, harness->queue(), theirs.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return isReady(theirs, "Taken"); }, kLimit));
    const auto own =
        harness->here().registerService(smb("Taken"), kPort, harness->queue(), ours.handler());
    EXPECT_TRUE(harness->waitUntil([&] { return isReady(ours, "Taken #2"); }, kLimit));
    EXPECT_TRUE(isReady(theirs, "Taken"));
}

TEST_P(DnsSdConformance, refusesANameThatCannotBe)
{
    const Registrations registered;
    const auto registration = harness->here().registerService(
        smb(std::string(64, 'x')), kPort, harness->queue(), registered.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return registered.count() > 0; }, kLimit));
    EXPECT_EQ(registered.last().state, RegistrationState::Failed);
    EXPECT_EQ(registered.last().error, DnsSdError::InvalidName);
}

TEST_P(DnsSdConformance, carriesUnusualNamesUnchanged)
{
    const std::set<std::string> names{
        "a.b.c",
        "back\\slash",
        "<img src=x> & %n",
        "Caf\xc3\xa9 \xf0\x9f\x93\xb1",
        std::string(63, 'y'),
    };
    std::vector<std::unique_ptr<DnsSd::Subscription>> registrations;
    const Registrations registered;
    for (const std::string& name : names)
        registrations.push_back(harness->there().registerService(smb(name), kPort, harness->queue(),
                                                                 registered.handler()));
    const Browses browsed;
    const auto browse = harness->here().browse("_smb._tcp", harness->queue(), browsed.handler());
    EXPECT_TRUE(harness->waitUntil([&] { return namesIn(browsed.last()) == names; }, kLimit));
    for (const ServiceEndpoint& service : browsed.last().services) {
        const Resolutions resolved;
        const auto resolution =
            harness->here().resolve(service, harness->queue(), resolved.handler());
        EXPECT_TRUE(harness->waitUntil([&] { return !resolved.last().addresses.empty(); }, kLimit))
            << service.name;
    }
}

TEST_P(DnsSdConformance, saysGoodbyeForOneAndKeepsTheOther)
{
    const Registrations registered;
    auto leaving = harness->here().registerService(smb("Leaving"), kPort, harness->queue(),
                                                   registered.handler());
    const auto staying = harness->here().registerService(smb("Staying"), kPort, harness->queue(),
                                                         registered.handler());
    const Browses browsed;
    const auto browse = harness->there().browse("_smb._tcp", harness->queue(), browsed.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return browsed.last().services.size() == 2; }, kLimit));
    leaving = nullptr;
    EXPECT_TRUE(harness->waitUntil(
        [&] { return namesIn(browsed.last()) == std::set<std::string>{"Staying"}; }, 3s));
}

TEST_P(DnsSdConformance, keepsTheLastSetWhileTheEngineIsAway)
{
    const Registrations registered;
    const auto registration = harness->there().registerService(
        smb("Quillbox"), kPort, harness->queue(), registered.handler());
    const Browses browsed;
    const auto browse = harness->here().browse("_smb._tcp", harness->queue(), browsed.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return browsed.last().services.size() == 1; }, kLimit));

    harness->takeEngineAway();
    ASSERT_TRUE(
        harness->waitUntil([&] { return browsed.last().state == BrowseState::Waiting; }, kLimit));
    EXPECT_TRUE(browsed.last().error);
    harness->bringEngineBack();
    ASSERT_TRUE(
        harness->waitUntil([&] { return browsed.last().state == BrowseState::Ready; }, kLimit));
    EXPECT_EQ(browsed.last().services, std::vector{endpoint("Quillbox")});
    std::size_t emptied = 0;
    bool wasListed = false;
    for (const auto& update : browsed.all()) {
        wasListed = wasListed || !update.services.empty();
        emptied +=
            wasListed && update.state == BrowseState::Ready && update.services.empty() ? 1 : 0;
    }
    EXPECT_EQ(emptied, 0U);
}

TEST_P(DnsSdConformance, registersAgainUnderTheSameNameWhenTheEngineIsBack)
{
    const Registrations registered;
    const auto registration =
        harness->here().registerService(smb("Mine"), kPort, harness->queue(), registered.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return isReady(registered, "Mine"); }, kLimit));
    harness->takeEngineAway();
    ASSERT_TRUE(harness->waitUntil(
        [&] { return registered.last().state == RegistrationState::Waiting; }, kLimit));
    harness->bringEngineBack();
    EXPECT_TRUE(harness->waitUntil([&] { return isReady(registered, "Mine"); }, kLimit));
    const Browses browsed;
    const auto browse = harness->there().browse("_smb._tcp", harness->queue(), browsed.handler());
    EXPECT_TRUE(harness->waitUntil(
        [&] { return namesIn(browsed.last()) == std::set<std::string>{"Mine"}; }, kLimit));
}

TEST_P(DnsSdConformance, resolvesWhatWasAskedWhileTheEngineWasAway)
{
    const Registrations registered;
    const auto registration = harness->there().registerService(
        smb("Quillbox"), kPort, harness->queue(), registered.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return isReady(registered, "Quillbox"); }, kLimit));
    harness->takeEngineAway();
    const Resolutions resolved;
    const auto resolution =
        harness->here().resolve(endpoint("Quillbox"), harness->queue(), resolved.handler());
    ASSERT_TRUE(harness->waitUntil([&] { return bool(resolved.last().error); }, kLimit));
    harness->bringEngineBack();
    EXPECT_TRUE(harness->waitUntil(
        [&] { return !resolved.last().error && !resolved.last().addresses.empty(); }, kLimit));
}

} // namespace quillbox
