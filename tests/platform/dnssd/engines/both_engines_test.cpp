#include "platform/dnssd/engine/engine_process.h"
#include "tests/platform/dnssd/engines/engine_network_test.h"
#include "tests/platform/dnssd/engines/engine_processes.h"

#include <string>
#include <vector>

namespace quillbox::dnssd {

namespace {

using namespace std::chrono_literals;

enum class Kind { Daemon, Embedded };

/// Tests of both avahi-daemon and the engine process.
class BothEngines : public EngineNetworkTest, public testing::WithParamInterface<Kind> {
protected:
    void SetUp() override
    {
        EngineNetworkTest::SetUp();
        if (GetParam() == Kind::Daemon)
            skipWithoutDaemon();
        if (IsSkipped() || HasFatalFailure())
            return;
        if (GetParam() == Kind::Daemon) {
            bus = std::make_unique<TestBus>();
            ASSERT_TRUE(bus->isReady());
            daemon = std::make_unique<TestDaemon>();
        }
        engine = makeOne();
        engine->start(events.handler());
        ASSERT_TRUE(events.waitFor<EngineUp>());
    }

    void TearDown() override
    {
        if (engine)
            engine->stop();
    }

    static std::unique_ptr<EngineOnPool> makeOne()
    {
        return GetParam() == Kind::Daemon ? makeDaemonEngine() : makeEmbeddedEngine();
    }

    std::unique_ptr<TestBus> bus;
    std::unique_ptr<TestDaemon> daemon;
    EventRecorder events;
    std::unique_ptr<EngineOnPool> engine;
};

TEST_P(BothEngines, findsAServiceOfAnotherHostAndSeesItGo)
{
    engine->send(BrowseRequest{1, "_quillbox._tcp"});
    ASSERT_TRUE(events.waitForEvent(Settled{1}));

    TestZeroconf phone(*network,
                       {"publish", "Quillbox <é>", "_quillbox._tcp", "phone.local", "4445"});
    ASSERT_TRUE(phone.waitForLine("published"));
    const Sighting sighting{network->interfaceHere(), Family::IPv4};
    EXPECT_TRUE(events.waitForEvent(
        ServiceAnswer{1, Change::Found, sighting, {"Quillbox <é>", "_quillbox._tcp", "local"}}));

    phone.finish();
    EXPECT_TRUE(events.waitForEvent(
        ServiceAnswer{1, Change::Lost, sighting, {"Quillbox <é>", "_quillbox._tcp", "local"}}));
    EXPECT_EQ(events.count<Settled>(), 1U);
}

TEST_P(BothEngines, resolvesAServiceToHostPortAndAddress)
{
    TestZeroconf phone(*network,
                       {"publish", "Quillbox", "_quillbox._tcp", "my-phone.local", "4445"});
    ASSERT_TRUE(phone.waitForLine("published"));

    const Sighting sighting{network->interfaceHere(), Family::IPv4};
    engine->send(LocationRequest{2, {"Quillbox", "_quillbox._tcp", "local"}});
    EXPECT_TRUE(
        events.waitForEvent(LocationAnswer{2, Change::Found, sighting, {"my-phone.local", 4445}}));
    engine->send(AddressRequest{3, "my-phone.local", Family::IPv4});
    EXPECT_TRUE(events.waitForEvent(
        AddressAnswer{3, Change::Found, sighting, address(TestNetwork::kAddressThere)}));
    engine->send(AddressRequest{4, "my-phone.local", Family::IPv6});
    EXPECT_TRUE(events.waitForEvent(Settled{4}));
    EXPECT_EQ(events.count<AddressAnswer>(), 1U);

    phone.finish();
    EXPECT_TRUE(
        events.waitForEvent(LocationAnswer{2, Change::Lost, sighting, {"my-phone.local", 4445}}));
}

TEST_P(BothEngines, advertisesWithAHostNameOfItsOwnAndNoTxtStrings)
{
    TestZeroconf browser(*network, {"watch", "_smb._tcp"});
    ASSERT_TRUE(browser.waitForLine("watching"));

    engine->send(registration(1, "Quillbox Office", "quillbox-1.local"));
    EXPECT_TRUE(events.waitForEvent(Registered{1}));
    EXPECT_TRUE(browser.waitForLine("found Quillbox Office._smb._tcp.local. host=quillbox-1.local. "
                                    "port=4445 addresses=192.168.77.1 txt=00"));

    engine->send(StopRequest{1});
    EXPECT_TRUE(browser.waitForLine("lost Quillbox Office._smb._tcp.local.", 3s));
}

TEST_P(BothEngines, announcesANameThatIsItsOwnAtOnce)
{
    TestZeroconf browser(*network, {"watch", "_smb._tcp"});
    ASSERT_TRUE(browser.waitForLine("watching"));
    RegisterRequest request = registration(1, "Quillbox.Office", "quillbox-1.local");
    request.isOwnName = true;
    events.clear();
    engine->send(registration(3, "Probed", "quillbox-3.local"));
    engine->send(request);
    EXPECT_TRUE(events.waitForEvent(Registered{3}));
    EXPECT_EQ(events.all(), (std::vector<Event>{Registered{1}, Registered{3}}))
        << "probing takes longer";
    EXPECT_TRUE(browser.waitForLine("found Quillbox.Office._smb._tcp.local. host=quillbox-1.local. "
                                    "port=4445 addresses=192.168.77.1 txt=00"));
    engine->send(registration(2, "Quillbox.Office", "quillbox-2.local"));
    EXPECT_TRUE(events.waitForEvent(Collision{2, Collision::Of::Service})) << "it is defended";
    engine->send(StopRequest{1});
    EXPECT_TRUE(browser.waitForLine("lost Quillbox.Office._smb._tcp.local.", 3s));
}

TEST_P(BothEngines, dropRequestsOfAnotherGeneration)
{
    const BareProcess process(GetParam() == Kind::Daemon ? kDaemonProgram : kResponderProgram);
    const auto up = process.nextAnswer();
    ASSERT_TRUE(up && std::holds_alternative<EngineUp>(up->content));
    EXPECT_EQ(up->generation, 1U);
    ASSERT_TRUE(process.send(0, registration(1, "Quillbox", "quillbox-1.local")));
    ASSERT_TRUE(process.send(2, registration(2, "Quillbox", "quillbox-1.local")));
    ASSERT_TRUE(process.send(1, registration(3, "Quillbox", "quillbox-1.local")));
    EXPECT_EQ(process.nextAnswer(), (Message<Event>{1, Registered{3}})) << "no other has its name";
}

TEST_P(BothEngines, saysGoodbyeWhenItIsStopped)
{
    TestZeroconf browser(*network, {"watch", "_smb._tcp"});
    ASSERT_TRUE(browser.waitForLine("watching"));
    engine->send(registration(1, "Quillbox", "quillbox-1.local"));
    ASSERT_TRUE(browser.waitForLine("found Quillbox._smb._tcp.local."));

    engine->stop();
    EXPECT_TRUE(browser.waitForLine("lost Quillbox._smb._tcp.local.", 3s));
}

TEST_P(BothEngines, saysNothingAfterItIsStopped)
{
    engine->send(registration(1, "Quillbox", "quillbox-1.local"));
    engine->send(BrowseRequest{2, "_smb._tcp"});
    engine->stop();
    events.clear();
    engine->send(BrowseRequest{3, "_smb._tcp"});
    engine->stop();
    EXPECT_TRUE(events.all().empty());
}

TEST_P(BothEngines, refusesANameThatThisComputerHas)
{
    engine->send(registration(1, "Quillbox", "quillbox-1.local"));
    ASSERT_TRUE(events.waitForEvent(Registered{1}));
    engine->send(registration(2, "Quillbox", "quillbox-2.local"));
    EXPECT_TRUE(events.waitForEvent(Collision{2, Collision::Of::Service}));

    // A refused registration does not conflict with the next one.
    engine->send(registration(3, "Quillbox #2", "quillbox-2.local"));
    EXPECT_TRUE(events.waitForEvent(Registered{3}));
}

TEST_P(BothEngines, reportsANameThatAnotherHostHas)
{
    TestZeroconf other(*network, {"publish", "Quillbox", "_smb._tcp", "other.local", "445"});
    ASSERT_TRUE(other.waitForLine("published"));
    engine->send(registration(1, "Quillbox", "quillbox-1.local"));
    EXPECT_TRUE(events.waitForEvent(Collision{1, Collision::Of::Service}));
    EXPECT_EQ(events.count<Registered>(), 0U);
}

TEST_P(BothEngines, reportsANameThatAnotherHostTakesLater)
{
    engine->send(registration(1, "Quillbox", "quillbox-1.local"));
    ASSERT_TRUE(events.waitForEvent(Registered{1}));
    TestZeroconf other(*network, {"publish", "Quillbox", "_smb._tcp", "other.local", "445"});
    EXPECT_TRUE(events.waitForEvent(Collision{1, Collision::Of::Service}));
}

TEST_P(BothEngines, reportsAHostNameThatAnotherHostHas)
{
    TestPeer other(*network, "Other", "quillbox-1.local");
    ASSERT_TRUE(other.isReady());
    engine->send(registration(1, "Quillbox", "quillbox-1.local"));
    EXPECT_TRUE(events.waitForEvent(Collision{1, Collision::Of::Host}));
}

TEST_P(BothEngines, changesAddressesWhileTheServiceStays)
{
    engine->send(registration(1, "Quillbox", "quillbox-1.local"));
    ASSERT_TRUE(events.waitForEvent(Registered{1}));
    TestZeroconf browser(*network, {"watch", "_smb._tcp"});
    ASSERT_TRUE(browser.waitForLine("addresses=192.168.77.1 "));

    engine->send(
        UpdateAddressesRequest{1,
                               {{network->interfaceHere(), address("192.168.77.9")},
                                {network->interfaceHere(), address(TestNetwork::kAddressHere)}}});
    engine->send(AddressRequest{2, "quillbox-1.local", Family::IPv4});
    const Sighting sighting{network->interfaceHere(), Family::IPv4};
    EXPECT_TRUE(
        events.waitForEvent(AddressAnswer{2, Change::Found, sighting, address("192.168.77.9")}));
    EXPECT_TRUE(
        events.waitForEvent(AddressAnswer{2, Change::Found, sighting, address("192.168.77.1")}));

    engine->send(UpdateAddressesRequest{1, {{network->interfaceHere(), address("192.168.77.9")}}});
    EXPECT_TRUE(
        events.waitForEvent(AddressAnswer{2, Change::Lost, sighting, address("192.168.77.1")}));
    EXPECT_EQ(events.count<Registered>(), 1U);
    while (const auto line = browser.readLine(200ms))
        EXPECT_EQ(line->find("lost"), std::string::npos) << *line;
}

TEST_P(BothEngines, publishesOnTheLoopbackInterfaceToo)
{
    RegisterRequest request = registration(1, "Quillbox", "quillbox-1.local");
    request.addresses.push_back({1, address("127.83.1.2")});
    engine->send(request);
    ASSERT_TRUE(events.waitForEvent(Registered{1}));
    engine->send(AddressRequest{2, "quillbox-1.local", Family::IPv4});
    EXPECT_TRUE(events.waitForEvent(
        AddressAnswer{2, Change::Found, Sighting{1, Family::IPv4}, address("127.83.1.2")}));
    TestZeroconf browser(*network, {"watch", "_smb._tcp"});
    EXPECT_TRUE(browser.waitForLine("addresses=192.168.77.1 "));
}

TEST_P(BothEngines, keepsNamesAsTheyAre)
{
    const std::string name = "a.b\\c \n\xe2\x80\xae <b>&%n";
    engine->send(BrowseRequest{1, "_smb._tcp"});
    engine->send(registration(2, name, "quillbox-1.local"));
    const Sighting sighting{network->interfaceHere(), Family::IPv4};
    EXPECT_TRUE(events.waitForEvent(
        ServiceAnswer{1, Change::Found, sighting, {name, "_smb._tcp", "local"}}));
    engine->send(LocationRequest{3, {name, "_smb._tcp", "local"}});
    EXPECT_TRUE(events.waitForEvent(
        LocationAnswer{3, Change::Found, sighting, {"quillbox-1.local", 4445}}));
}

TEST_P(BothEngines, refusesWhatCanNeverBe)
{
    engine->send(BrowseRequest{1, "not a type"});
    EXPECT_TRUE(events.waitForEvent(Failed{1, DnsSdError::InvalidType}));
    engine->send(BrowseRequest{2, "_smb._tcp\xff"});
    EXPECT_TRUE(events.waitForEvent(Failed{2, DnsSdError::InvalidType}));
    engine->send(registration(3, std::string(64, 'x'), "quillbox-1.local"));
    EXPECT_TRUE(events.waitForEvent(Failed{3, DnsSdError::InvalidName}));
    engine->send(registration(4, "bad \xc3", "quillbox-1.local"));
    EXPECT_TRUE(events.waitForEvent(Failed{4, DnsSdError::InvalidName}));
    engine->send(registration(5, std::string("a\0b", 3), "quillbox-1.local"));
    EXPECT_TRUE(events.waitForEvent(Failed{5, DnsSdError::InvalidName}));
    engine->send(registration(6, std::string(70'000, 'x'), "quillbox-1.local"));
    EXPECT_TRUE(events.waitForEvent(Failed{6, DnsSdError::InvalidName}));
    engine->send(AddressRequest{7, "a..b", Family::IPv4});
    EXPECT_TRUE(events.waitForEvent(Failed{7, DnsSdError::InvalidName}));
    engine->send(LocationRequest{8, {"Quillbox", "nonsense", "local"}});
    EXPECT_TRUE(events.waitForEvent(Failed{8, DnsSdError::InvalidType}));

    // The engine still works after that.
    engine->send(StopRequest{99});
    engine->send(BrowseRequest{9, "_smb._tcp"});
    EXPECT_TRUE(events.waitForEvent(Settled{9}));
    EXPECT_EQ(events.count<EngineUp>(), 1U);
}

TEST_P(BothEngines, keepsARegistrationThroughALinkThatGoesDownAndUp)
{
    TestZeroconf browser(*network, {"watch", "_smb._tcp"});
    ASSERT_TRUE(browser.waitForLine("watching"));
    // The link goes down during probing: in Avahi 0.8 this group would stay in the REGISTERING
    // state forever.
    engine->send(registration(1, "Quillbox", "quillbox-1.local"));
    ASSERT_TRUE(network->setLink(false));
    ASSERT_TRUE(network->setLink(true));
    EXPECT_TRUE(events.waitForEvent(Registered{1}, 12s));
    EXPECT_TRUE(browser.waitForLine("found Quillbox._smb._tcp.local."));
}

INSTANTIATE_TEST_SUITE_P(Engine, BothEngines, testing::Values(Kind::Daemon, Kind::Embedded),
                         [](const auto& parameter) {
                             return parameter.param == Kind::Daemon ? "daemon" : "embedded";
                         });

} // namespace

} // namespace quillbox::dnssd
