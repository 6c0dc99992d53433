#include "platform/dial/address_race.h"
#include "platform/tcp/socket_calls.h"
#include "platform/values/socket_address.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/netlink/network_namespace.h"
#include "tests/platform/tcp/tcp_harness.h"

#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using State = Connection::State;

constexpr int kLoopbackIndex = 1;

DnsSd::FoundAddress onLoopback(const SocketAddress& address)
{
    return {.address = address, .interfaceIndex = kLoopbackIndex};
}

/// A link-local address without a scope: connect() fails before a packet is sent.
SocketAddress unreachableAddress()
{
    return ipv6Address("fe80::1", 0, 4445);
}

std::uint16_t closedPort()
{
    return PeerListener().port();
}

bool hasIPv6()
{
    const Peer probe(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto address = ipv6Address("::1");
    return ::bind(probe.descriptor(), address.data(), address.size()) == 0;
}

bool waitForAsk(const FakeDnsSd& dnsSd)
{
    return dnsSd.waitForCount(1, kPatience);
}

} // namespace

TEST(Connector, failsWhenTheHostRefuses)
{
    Harness harness;
    auto subject = harness.dial("127.0.0.1", closedPort());
    ASSERT_TRUE(subject.log->waitFor(State::Failed));
    EXPECT_EQ(subject.log->errorOf(State::Failed), std::errc::connection_refused);
    EXPECT_EQ(subject.log->states(), (std::vector{State::Preparing, State::Failed}));
    EXPECT_EQ(harness.monitor.subscriberCount(), 0U);
}

TEST(Connector, dialsIPv6InBracketsAndWithout)
{
    Harness harness;
    std::error_code error;
    const Peer phone(openListeningSocket(kAnyPort, false, error));
    ASSERT_FALSE(error) << error.message();
    if (!hasIPv6())
        GTEST_SKIP() << "no IPv6 here";
    for (const std::string host : {"[::1]", "::1", "::ffff:127.0.0.1"}) {
        auto subject = harness.dial(host, localPort(phone.descriptor()));
        EXPECT_TRUE(subject.log->waitFor(State::Ready)) << host;
    }
    EXPECT_EQ(harness.dnsSd.count(), 0U);
}

TEST(Connector, looksUpOtherNames)
{
    Harness harness;
    const PeerListener phone;
    auto subject = harness.dial("localhost", phone.port());
    EXPECT_TRUE(subject.log->waitFor(State::Ready));
    EXPECT_EQ(harness.dnsSd.count(), 0U);
}

TEST(Connector, resolvesLocalNamesByDnsSd)
{
    Harness harness;
    const PeerListener phone;
    auto subject = harness.dial("My Phone.LOCAL.", phone.port());
    ASSERT_TRUE(waitForAsk(harness.dnsSd));
    const auto request = harness.resolution().request;
    ASSERT_TRUE(request.host());
    EXPECT_EQ(request.host()->host, "My Phone.LOCAL");
    harness.resolution().tell(found({onLoopback(ipv4Address("127.0.0.1"))}));
    EXPECT_TRUE(subject.log->waitFor(State::Ready));

    auto without = harness.dial(".local", phone.port());
    EXPECT_TRUE(without.log->waitFor(State::Waiting));
    EXPECT_EQ(harness.dnsSd.count(), 1U) << "no host name";
}

TEST(Connector, keepsWhatItResolvedForTheNext)
{
    Harness harness;
    const PeerListener phone;
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(waitForAsk(harness.dnsSd));
    EXPECT_EQ(harness.resolution().request, kPhone);
    harness.resolution().tell(found({onLoopback(phone.address())}));
    ASSERT_TRUE(subject.log->waitFor(State::Ready));
    EXPECT_EQ(harness.monitor.subscriberCount(), 0U);
    auto next = harness.dial(kPhone);
    EXPECT_TRUE(next.log->waitFor(State::Ready));
}

TEST(Connector, dialsNoAddressThatIsGoneSinceTheLastConnection)
{
    Harness harness;
    const PeerListener before("127.0.0.2");
    const PeerListener after("127.0.0.3");
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(waitForAsk(harness.dnsSd));
    harness.resolution().tell(found({onLoopback(before.address())}));
    ASSERT_TRUE(subject.log->waitFor(State::Ready));
    const auto old = before.accept();
    harness.resolution().tell(found({onLoopback(after.address())}));
    std::promise<void> isTold;
    harness.resolution().queue->async([&isTold] { isTold.set_value(); });
    isTold.get_future().wait();
    auto next = harness.dial(kPhone);
    ASSERT_TRUE(next.log->waitFor(State::Ready));
    EXPECT_GE(after.accept().descriptor(), 0);
}

TEST(Connector, triesFirstWhatConnectedLast)
{
    Harness harness;
    const SilentAddress stale("127.0.0.2");
    const PeerListener phone("127.0.0.3");
    harness.dnsSd.answerAll(found({onLoopback(stale.address()), onLoopback(phone.address())}));
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(subject.log->waitFor(State::Ready));
    const auto before = std::chrono::steady_clock::now();
    auto next = harness.dial(kPhone);
    ASSERT_TRUE(next.log->waitFor(State::Ready));
    EXPECT_LT(std::chrono::steady_clock::now() - before, AddressRace::kStagger - 10ms);
}

TEST(Connector, leavesItsFavouriteForAnotherThatConnectsSooner)
{
    Harness harness;
    auto former = std::make_unique<PeerListener>("127.0.0.2", 0);
    const PeerListener phone("127.0.0.3");
    const auto address = former->address();
    const auto both = found({onLoopback(address), onLoopback(phone.address())});
    harness.dnsSd.answerAll(both);
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(subject.log->waitFor(State::Ready));
    // Connections to this address are refused from now on.
    former->close();
    auto second = harness.dial(kPhone);
    ASSERT_TRUE(second.log->waitFor(State::Ready));
    const auto taken = phone.accept();
    auto third = harness.dial(kPhone);
    ASSERT_TRUE(third.log->waitFor(State::Ready));
    EXPECT_GE(phone.accept().descriptor(), 0);
}

TEST(Connector, dialsNoOtherHostOnceItIsConnected)
{
    Harness harness;
    const PeerListener phone("127.0.0.2");
    const PeerListener other("127.0.0.3");
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(waitForAsk(harness.dnsSd));
    const auto both = found({onLoopback(phone.address()), onLoopback(other.address())});
    harness.resolution().tell(both);
    ASSERT_TRUE(subject.log->waitFor(State::Ready));
    EXPECT_TRUE(phone.isConnectedTo(kPatience));
    harness.resolution().tell(both);
    EXPECT_FALSE(other.isConnectedTo(2 * AddressRace::kStagger));
    EXPECT_EQ(subject.log->states(), (std::vector{State::Preparing, State::Ready}));
}

TEST(Connector, beginsWithIPv6AndAlternatesBetweenTheFamilies)
{
    if (!hasIPv6())
        GTEST_SKIP() << "no IPv6 here";
    std::error_code error;
    const Peer phone(openListeningSocket(kAnyPort, false, error));
    ASSERT_FALSE(error) << error.message();
    const auto port = localPort(phone.descriptor());
    const auto ipv4 = onLoopback(ipv4Address("127.0.0.1", port));
    const auto ipv6 = onLoopback(ipv6Address("::1", 0, port));
    const auto firstCallOf = [&](const std::vector<DnsSd::FoundAddress>& addresses) {
        // A harness of its own knows nothing of earlier connections.
        Harness harness;
        harness.dnsSd.answerAll(found(addresses));
        auto subject = harness.dial(kPhone);
        EXPECT_TRUE(subject.log->waitFor(State::Ready));
        SocketAddress client;
        const Peer accepted(acceptStreamSocket(phone.descriptor(), client, error));
        EXPECT_FALSE(error) << error.message();
        return withPort(client, 0);
    };
    EXPECT_EQ(firstCallOf({ipv4, ipv6}), ipv6Address("::1"));
    EXPECT_EQ(firstCallOf({onLoopback(unreachableAddress()), ipv6, ipv4}),
              ipv6Address("::ffff:127.0.0.1"));
}

TEST(Connector, doesNotWaitForADeadFirstAddress)
{
    Harness harness;
    const SilentAddress stale("127.0.0.2");
    const PeerListener phone("127.0.0.3");
    harness.dnsSd.answerAll(found({onLoopback(stale.address()), onLoopback(phone.address())}));
    const auto before = std::chrono::steady_clock::now();
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(subject.log->waitFor(State::Ready));
    const auto duration = std::chrono::steady_clock::now() - before;
    // With 10 ms of tolerance.
    EXPECT_GE(duration, AddressRace::kStagger - 10ms)
        << "the second is not asked before the first had its chance";
    EXPECT_LT(duration, 2s);
}

TEST(Connector, triesTheNextAddressAtOnceWhenOneFails)
{
    Harness harness;
    const PeerListener phone;
    std::vector<DnsSd::FoundAddress> addresses;
    constexpr int kRefusing = 8;
    for (int host = 0; host < kRefusing; ++host)
        addresses.push_back(
            onLoopback(ipv4Address("127.0.1." + std::to_string(host + 1), closedPort())));
    addresses.push_back(onLoopback(phone.address()));
    harness.dnsSd.answerAll(found(std::move(addresses)));
    const auto before = std::chrono::steady_clock::now();
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(subject.log->waitFor(State::Ready));
    // Waiting for the stagger after each address would take `kStagger * kRefusing`.
    EXPECT_LT(std::chrono::steady_clock::now() - before, AddressRace::kStagger * kRefusing / 2);
}

TEST(Connector, letsNewAddressesJoinTheRace)
{
    Harness harness;
    const SilentAddress stale("127.0.0.2");
    const PeerListener phone("127.0.0.3");
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(waitForAsk(harness.dnsSd));
    harness.resolution().tell(found({onLoopback(stale.address())}));
    EXPECT_FALSE(subject.log->waitFor(State::Ready, kWatch));
    harness.resolution().tell(found({onLoopback(stale.address()), onLoopback(phone.address())}));
    EXPECT_TRUE(subject.log->waitFor(State::Ready));
    EXPECT_EQ(subject.log->count(State::Waiting), 0U);
}

TEST(Connector, closesTheLosersOfTheRace)
{
    Harness harness;
    const SilentAddress first("127.0.0.2");
    const SilentAddress second("127.0.0.4");
    const PeerListener phone("127.0.0.3");
    harness.dnsSd.answerAll(found(
        {onLoopback(first.address()), onLoopback(second.address()), onLoopback(phone.address())}));
    const auto before = openDescriptorCount();
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(subject.log->waitFor(State::Ready));
    subject.settle();
    EXPECT_EQ(openDescriptorCount(), before + 1);
    subject.cancel();
    ASSERT_TRUE(subject.log->waitFor(State::Cancelled));
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(Connector, closesAllAttemptsWhenItIsCancelled)
{
    Harness harness;
    const SilentAddress silent("127.0.0.2");
    harness.dnsSd.answerAll(found({onLoopback(silent.address())}));
    const auto before = openDescriptorCount();
    auto subject = harness.dial(kPhone);
    EXPECT_FALSE(subject.log->waitFor(State::Ready, kWatch));
    EXPECT_EQ(openDescriptorCount(), before + 1);
    subject.cancel();
    ASSERT_TRUE(subject.log->waitFor(State::Cancelled));
    EXPECT_EQ(openDescriptorCount(), before);
    EXPECT_EQ(subject.log->states(), (std::vector{State::Preparing, State::Cancelled}));
}

TEST(Connector, closesAllAttemptsWhenItIsDropped)
{
    Harness harness;
    const SilentAddress silent("127.0.0.2");
    harness.dnsSd.answerAll(found({onLoopback(silent.address())}));
    const auto before = openDescriptorCount();
    auto subject = harness.dial(kPhone);
    EXPECT_FALSE(subject.log->waitFor(State::Ready, kWatch));
    subject.drop();
    subject.settle();
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(Connector, failsWhenOneAddressRefusesAndNoneConnects)
{
    Harness harness;
    harness.dnsSd.answerAll(found(
        {onLoopback(ipv4Address("127.0.0.1", closedPort())), onLoopback(unreachableAddress())}));
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(subject.log->waitFor(State::Failed));
    EXPECT_EQ(subject.log->errorOf(State::Failed), std::errc::connection_refused);
}

TEST(Connector, waitsForTheOtherFamilyBeforeItFails)
{
    Harness harness;
    const PeerListener phone;
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(waitForAsk(harness.dnsSd));
    auto update = found({onLoopback(ipv4Address("127.0.0.2", closedPort()))});
    update.isSettledIPv6 = false;
    harness.resolution().tell(update);
    EXPECT_FALSE(subject.log->waitFor(State::Failed, kWatch));
    update.addresses.push_back(onLoopback(phone.address()));
    update.isSettledIPv6 = true;
    harness.resolution().tell(update);
    EXPECT_TRUE(subject.log->waitFor(State::Ready));
}

TEST(Connector, failsSoonAfterARefusalWhenNothingIsHeardOfTheOtherFamily)
{
    Harness harness;
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(waitForAsk(harness.dnsSd));
    auto update = found({onLoopback(ipv4Address("127.0.0.2", closedPort()))});
    update.isSettledIPv6 = false;
    harness.resolution().tell(update);
    ASSERT_TRUE(subject.log->waitFor(State::Failed));
    EXPECT_EQ(subject.log->errorOf(State::Failed), std::errc::connection_refused);
}

TEST(Connector, doesNotFailByARefusalOfAnAddressThatIsOnlyRemembered)
{
    Harness harness;
    const PeerListener phone;
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(waitForAsk(harness.dnsSd));
    auto update = found({onLoopback(ipv4Address("127.0.0.2", closedPort()))});
    update.isSettledIPv4 = update.isSettledIPv6 = false;
    harness.resolution().tell(update);
    EXPECT_FALSE(subject.log->waitFor(State::Failed, 700ms));
    harness.resolution().tell(found({onLoopback(phone.address())}));
    EXPECT_TRUE(subject.log->waitFor(State::Ready));
}

TEST(Connector, doesNotFailByARefusalWhileAnAddressThatCameLaterIsTried)
{
    Harness harness;
    const SilentAddress silent("127.0.0.2");
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(waitForAsk(harness.dnsSd));
    auto update = found({onLoopback(ipv4Address("127.0.0.3", closedPort()))});
    update.isSettledIPv6 = false;
    harness.resolution().tell(update);
    EXPECT_FALSE(subject.log->waitFor(State::Failed, kWatch));
    update.addresses.push_back(onLoopback(silent.address()));
    harness.resolution().tell(update);
    EXPECT_FALSE(subject.log->waitFor(State::Failed, 700ms));
}

TEST(Connector, waitsForTheOtherFamilyWhileAnAddressCannotBeReached)
{
    Harness harness;
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(waitForAsk(harness.dnsSd));
    auto update = found({onLoopback(unreachableAddress())});
    update.isSettledIPv4 = false;
    harness.resolution().tell(update);
    EXPECT_FALSE(subject.log->waitFor(State::Failed, 700ms));
    EXPECT_EQ(subject.log->count(State::Waiting), 0U);
}

TEST(Connector, waitsWhileThereIsNothingToResolveAndConnectsWhenThereIs)
{
    Harness harness;
    const PeerListener phone;
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(waitForAsk(harness.dnsSd));
    harness.resolution().tell(found({}));
    ASSERT_TRUE(subject.log->waitFor(State::Waiting));
    EXPECT_TRUE(subject.log->errorOf(State::Waiting));
    harness.resolution().tell(found({onLoopback(phone.address())}));
    EXPECT_TRUE(subject.log->waitFor(State::Ready));
    EXPECT_EQ(subject.log->states(), (std::vector{State::Preparing, State::Waiting, State::Ready}));
}

TEST(Connector, waitsWithTheEnginesErrorWhileNoEngineAnswers)
{
    Harness harness;
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(waitForAsk(harness.dnsSd));
    DnsSd::ResolveUpdate update;
    update.error = std::make_error_code(std::errc::host_unreachable);
    harness.resolution().tell(update);
    ASSERT_TRUE(subject.log->waitFor(State::Waiting));
    EXPECT_EQ(subject.log->errorOf(State::Waiting), std::errc::host_unreachable);
}

TEST(Connector, waitsWhileAnAddressCannotBeReachedAndSaysSoOnce)
{
    Harness harness;
    harness.dnsSd.answerAll(found({onLoopback(unreachableAddress())}));
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(subject.log->waitFor(State::Waiting));
    for (int count = 0; count < 3; ++count) {
        harness.monitor.tellChange();
        subject.settle();
    }
    EXPECT_EQ(subject.log->states(), (std::vector{State::Preparing, State::Waiting}));
}

TEST(Connector, connectsAfterRecordsChange)
{
    Harness harness;
    const PeerListener phone;
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(waitForAsk(harness.dnsSd));
    harness.resolution().tell(found({onLoopback(unreachableAddress())}));
    ASSERT_TRUE(subject.log->waitFor(State::Waiting));
    harness.resolution().tell(found({onLoopback(phone.address())}));
    EXPECT_TRUE(subject.log->waitFor(State::Ready, 900ms)) << "at once, not after a pause";
}

TEST(Connector, dialsNoAddressOfAStrangerThatLeadsToThisComputer)
{
    Harness harness;
    const PeerListener service;
    auto fromAfar = onLoopback(service.address());
    fromAfar.interfaceIndex = 7;
    harness.dnsSd.answerAll(found({fromAfar}));
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(subject.log->waitFor(State::Waiting));
    EXPECT_FALSE(subject.log->waitFor(State::Ready, kWatch));
}

/// Dials a server whose address, 192.0.2.7, is in a record that arrived on interface 7, on behalf
/// of a client with the other address, and expects that the connection reaches that state.
void expectOfRecordFromNetwork(State expected, std::vector<OutgoingRoute> routes,
                               const std::string& client = "127.0.0.1",
                               std::chrono::milliseconds lookupTime = 0ms)
{
    inNetworkNamespace([&] {
        setLoopbackUp(true);
        ASSERT_EQ(std::system("ip address add 192.0.2.7/32 dev lo"), 0);
        Harness harness;
        harness.listen();
        const auto peer = connectPeer(harness.listeningPort(), client);
        const auto accepted = harness.nextAccepted();
        const PeerListener phone("192.0.2.7");
        harness.monitor.setRoutes(7, phone.address(), std::move(routes));
        harness.monitor.slowDown(lookupTime);
        harness.dnsSd.answerAll(found({{.address = phone.address(), .interfaceIndex = 7}}));
        auto subject = harness.dial(kPhone, {.client = accepted});
        EXPECT_TRUE(subject.log->waitFor(expected));
        if (expected != State::Ready) {
            EXPECT_EQ(subject.log->count(State::Ready), 0U);
        }
        harness.pool.shutdown();
    });
}

TEST(Connector, dialsAnAddressOfTheNetworkWhereItsRecordArrived)
{
    expectOfRecordFromNetwork(State::Ready, {OutgoingRoute::Preferred});
}

TEST(Connector, dialsNoAddressThatIsNotInTheNetworkWhereItsRecordArrived)
{
    expectOfRecordFromNetwork(State::Waiting, {OutgoingRoute::None});
}

TEST(Connector, bindsItsSocketToTheInterfaceWhereTheKernelWouldTakeAnother)
{
    // There is no interface 7 to bind to.
    expectOfRecordFromNetwork(State::Waiting, {OutgoingRoute::IfBound});
}

TEST(Connector, saysAgainWhyItWaitsWhenTheReasonChanges)
{
    Harness harness;
    const PeerListener phone;
    harness.monitor.setRoutes(7, ipv4Address("192.0.2.7"), {OutgoingRoute::None});
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(waitForAsk(harness.dnsSd));
    harness.resolution().tell(found({}));
    ASSERT_TRUE(subject.log->waitFor(State::Waiting));
    harness.resolution().tell(
        found({{.address = ipv4Address("192.0.2.7", phone.port()), .interfaceIndex = 7}}));
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (subject.log->count(State::Waiting) < 2 && std::chrono::steady_clock::now() < end)
        subject.settle();
    EXPECT_EQ(subject.log->states(),
              (std::vector{State::Preparing, State::Waiting, State::Waiting}));
}

TEST(Connector, dropsAConnectionThatANewRouteDiverted)
{
    inNetworkNamespace([] {
        setLoopbackUp(true);
        ASSERT_EQ(std::system("ip address add 192.0.2.7/32 dev lo"), 0);
        Harness harness;
        const SilentAddress phone("192.0.2.7");
        harness.monitor.setRoutes(7, phone.address(),
                                  {OutgoingRoute::Preferred, OutgoingRoute::None});
        auto subject = harness.dial(kPhone);
        ASSERT_TRUE(waitForAsk(harness.dnsSd));
        harness.resolution().tell(found({{.address = phone.address(), .interfaceIndex = 7}}));
        std::promise<void> isTold;
        harness.resolution().queue->async([&isTold] { isTold.set_value(); });
        isTold.get_future().wait();
        subject.settle();
        // The kernel repeats the request after a second, and looks for its route again.
        phone.answer();
        EXPECT_TRUE(subject.log->waitFor(State::Waiting));
        EXPECT_EQ(subject.log->count(State::Ready), 0U);
        harness.pool.shutdown();
    });
}

TEST(Connector, dropsAConnectionIfTheRouteChangedBeforeItsRequestWasSent)
{
    expectOfRecordFromNetwork(State::Waiting, {OutgoingRoute::Preferred, OutgoingRoute::None},
                              "127.0.0.1", 20ms);
}

TEST(Connector, refusesToConnectAClientToItsOwnHost)
{
    expectOfRecordFromNetwork(State::Failed, {OutgoingRoute::Preferred}, "192.0.2.7");
}

TEST(Connector, connectsAClientOnThisComputerToAPhoneOnThisComputer)
{
    Harness harness;
    const PeerListener phone;
    harness.listen();
    const auto peer = connectPeer(harness.listeningPort());
    const auto accepted = harness.nextAccepted();
    harness.dnsSd.answerAll(found({onLoopback(phone.address())}));
    auto subject = harness.dial(kPhone, {.client = accepted});
    EXPECT_TRUE(subject.log->waitFor(State::Ready));
    auto typed = harness.dial(HostEndpoint{"127.0.0.1", phone.port()}, {.client = accepted});
    EXPECT_TRUE(typed.log->waitFor(State::Ready));
}

TEST(Connector, dialsNoListenerOfItsOwn)
{
    Harness harness;
    harness.listen();
    auto typed = harness.dial("127.0.0.1", harness.listeningPort());
    ASSERT_TRUE(typed.log->waitFor(State::Failed));
    EXPECT_EQ(typed.log->errorOf(State::Failed), std::errc::connection_refused);
    harness.dnsSd.answerAll(found({onLoopback(ipv4Address("127.0.0.1", harness.listeningPort()))}));
    auto resolved = harness.dial(kPhone);
    EXPECT_TRUE(resolved.log->waitFor(State::Waiting));
    EXPECT_EQ(harness.acceptedCount(), 0U);
}

TEST(Connector, costsNothingWhileThePhoneIsUnknown)
{
    Harness harness;
    auto subject = harness.dial(kPhone);
    ASSERT_TRUE(waitForAsk(harness.dnsSd));
    harness.resolution().tell(found({}));
    ASSERT_TRUE(subject.log->waitFor(State::Waiting));
    const auto before = processorTime();
    EXPECT_FALSE(subject.log->waitFor(State::Failed, 300ms));
    EXPECT_LT(processorTime() - before, 30ms);
}

} // namespace quillbox
