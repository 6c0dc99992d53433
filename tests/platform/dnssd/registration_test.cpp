#include "platform/dnssd/operations/names.h"
#include "platform/dnssd/operations/registration.h"
#include "tests/platform/dnssd/center_fixture.h"

#include <algorithm>
#include <string>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using namespace dnssd;
using testing::ElementsAre;
using testing::IsEmpty;
using RegistrationState = DnsSd::RegistrationUpdate::State;
using Registrations = Recorder<DnsSd::RegistrationUpdate>;

class RegistrationTest : public CenterTest {
protected:
    RegistrationTest()
    {
        monitor.setAddresses({interfaceAddress(1, "lo", "127.0.0.1"),
                              interfaceAddress(2, "eth0", "10.0.0.1"),
                              interfaceAddress(2, "eth0", "fe80::1")});
        dispatch.runAll();
        registration = add("Quillbox", registered);
    }

    std::unique_ptr<DnsSd::Subscription> add(const std::string& name, const Registrations& log)
    {
        return dnsSd->registerService({name, "_smb._tcp"}, 5000, dispatch.mainQueue(),
                                      log.handler());
    }

    RegisterRequest request() const { return engine.only<RegisterRequest>(); }

    void establish() { emit(Registered{request().id}); }

    void collide(Collision::Of of = Collision::Of::Service) { emit(Collision{request().id, of}); }

    Registrations registered;
    std::unique_ptr<DnsSd::Subscription> registration;
};

DnsSd::RegistrationUpdate ready(const std::string& name)
{
    return {RegistrationState::Ready, {}, name};
}

DnsSd::RegistrationUpdate waiting(DnsSdError error, const std::string& name)
{
    return {RegistrationState::Waiting, error, name};
}

} // namespace

TEST_F(RegistrationTest, publishesTheServiceOnAHostOfItsOwn)
{
    up();
    const RegisterRequest asked = request();
    EXPECT_EQ(asked.name, "Quillbox");
    EXPECT_EQ(asked.type, "_smb._tcp");
    EXPECT_EQ(asked.port, 5000);
    EXPECT_TRUE(asked.hostName.starts_with("quillbox-my-pc-")) << asked.hostName;
    EXPECT_TRUE(asked.hostName.ends_with(".local"));
    ASSERT_EQ(asked.addresses.size(), 3U);
    EXPECT_EQ(asked.addresses[0], (HostAddress{2, address("10.0.0.1")}));
    EXPECT_EQ(asked.addresses[1], (HostAddress{2, address("fe80::1")}));
    EXPECT_EQ(asked.addresses[2].interfaceIndex, 1);
    EXPECT_EQ(asked.addresses[2].address.bytes[0], 127);
    EXPECT_NE(asked.addresses[2].address, address("127.0.0.1"));
    EXPECT_EQ(registered.count(), 0U);
    establish();
    EXPECT_EQ(registered.last(), ready("Quillbox"));
}

TEST_F(RegistrationTest, keepsTwoServicesOnTwoHosts)
{
    const Registrations second;
    const auto other = add("Quillbox", second);
    up();
    const auto all = engine.standing<RegisterRequest>();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_NE(all[0].hostName, all[1].hostName);
    EXPECT_NE(all[0].addresses.back(), all[1].addresses.back());
    EXPECT_EQ(all[0].name, all[1].name) << "the engine finds the collision";
}

TEST_F(RegistrationTest, changesATakenNameAtOnce)
{
    up();
    const RequestId first = request().id;
    const std::string hostName = request().hostName;
    collide();
    EXPECT_EQ(registered.last(), waiting(DnsSdError::NameTaken, "Quillbox #2"));
    EXPECT_NE(request().id, first);
    EXPECT_EQ(request().name, "Quillbox #2");
    EXPECT_EQ(request().hostName, hostName);
    establish();
    EXPECT_EQ(registered.last(), ready("Quillbox #2"));
}

TEST_F(RegistrationTest, pausesLongerWithEachCollision)
{
    up();
    collide();
    std::size_t asked = 2;
    for (const auto pause : {500ms, 1000ms, 2000ms, 4000ms, 8000ms, 16000ms, 30000ms, 30000ms}) {
        EXPECT_EQ(engine.count<RegisterRequest>(), asked);
        collide();
        dispatch.advance(pause - 1ms);
        EXPECT_EQ(engine.count<RegisterRequest>(), asked);
        EXPECT_TRUE(engine.standing<RegisterRequest>().empty());
        EXPECT_EQ(registered.last().state, RegistrationState::Waiting);
        dispatch.advance(1ms);
        EXPECT_EQ(engine.count<RegisterRequest>(), ++asked);
    }
    EXPECT_EQ(request().name, "Quillbox #10");
}

TEST_F(RegistrationTest, forgetsTheCollisionsOfLongAgo)
{
    up();
    collide();
    collide();
    dispatch.advance(500ms);
    establish();
    dispatch.advance(59s);
    collide();
    dispatch.advance(999ms);
    EXPECT_TRUE(engine.standing<RegisterRequest>().empty()) << "it has not stood for long";
    dispatch.advance(1ms);
    establish();
    dispatch.advance(61s);
    collide();
    EXPECT_EQ(request().name, "Quillbox #5");
}

TEST_F(RegistrationTest, cutsALongNameBetweenCharacters)
{
    std::string name;
    while (name.size() < 60)
        name += "\xf0\x9f\x93\xb1";
    name += "\xe2\x82\xac";
    ASSERT_EQ(name.size(), kMaximumLabelSize);
    registration = add(name, registered);
    up();
    EXPECT_EQ(request().name, name);
    collide();
    EXPECT_EQ(request().name, name.substr(0, 60) + " #2");
    for (int i = 3; i <= 10; ++i) {
        collide();
        while (request().id == 0 && dispatch.now() < 600s)
            dispatch.advance(500ms);
        EXPECT_TRUE(isInstanceName(request().name));
    }
    EXPECT_EQ(request().name, name.substr(0, 56) + " #10");
}

TEST_F(RegistrationTest, changesATakenHostNameOnly)
{
    up();
    const std::string before = request().hostName;
    collide(Collision::Of::Host);
    EXPECT_EQ(request().name, "Quillbox");
    EXPECT_EQ(request().hostName, before.substr(0, before.find('.')) + "-2.local");
    establish();
    EXPECT_EQ(registered.last(), ready("Quillbox"));
    down();
    up();
    EXPECT_EQ(request().hostName, before.substr(0, before.find('.')) + "-2.local");
}

TEST_F(RegistrationTest, keepsTheNameInUseWhenTheEngineComesBack)
{
    up();
    collide();
    establish();
    down(std::make_error_code(std::errc::connection_reset));
    EXPECT_EQ(registered.last(),
              (DnsSd::RegistrationUpdate{RegistrationState::Waiting,
                                         std::make_error_code(std::errc::connection_reset),
                                         "Quillbox #2"}));
    up();
    EXPECT_EQ(registered.last().state, RegistrationState::Waiting);
    EXPECT_EQ(request().name, "Quillbox #2");
    establish();
    EXPECT_EQ(registered.last(), ready("Quillbox #2"));
}

TEST_F(RegistrationTest, followsTheNameOfTheComputer)
{
    engine.up("old.local");
    dispatch.runAll();
    EXPECT_TRUE(request().hostName.starts_with("quillbox-old-"));
    engine.up("new.local");
    dispatch.runAll();
    EXPECT_TRUE(request().hostName.starts_with("quillbox-new-"));
    engine.up("");
    dispatch.runAll();
    EXPECT_TRUE(request().hostName.starts_with("quillbox-new-"));
}

TEST_F(RegistrationTest, asksAtOnceWhenTheEngineComesBackDuringAPause)
{
    up();
    collide();
    collide();
    down();
    up();
    EXPECT_EQ(engine.standing<RegisterRequest>().size(), 1U);
    dispatch.advance(5s);
    EXPECT_EQ(engine.standing<RegisterRequest>().size(), 1U) << "the pause was dropped";
}

TEST_F(RegistrationTest, publishesTheAddressesThatTheComputerHasNow)
{
    up();
    const auto before = request();
    monitor.setAddresses(
        {interfaceAddress(1, "lo", "127.0.0.1"), interfaceAddress(3, "wlan0", "10.0.0.9")});
    dispatch.runAll();
    const auto update = engine.only<UpdateAddressesRequest>();
    EXPECT_EQ(update.id, before.id);
    EXPECT_EQ(update.addresses,
              (std::vector<HostAddress>{{3, address("10.0.0.9")}, before.addresses.back()}));
    monitor.setAddresses(monitor.addresses());
    dispatch.runAll();
    EXPECT_EQ(engine.count<UpdateAddressesRequest>(), 1U);
    auto more = monitor.addresses();
    more.push_back(interfaceAddress(1, "lo", "127.0.1.1"));
    monitor.setAddresses(more);
    dispatch.runAll();
    EXPECT_EQ(engine.count<UpdateAddressesRequest>(), 1U) << "nothing that is published changed";
    monitor.setAddresses({interfaceAddress(1, "lo", "127.0.0.1")});
    dispatch.runAll();
    EXPECT_EQ(engine.standing<UpdateAddressesRequest>().back().addresses,
              (std::vector<HostAddress>{before.addresses.back()}));
}

TEST_F(RegistrationTest, takesAddressesThatChangedWhileItWaitedAlong)
{
    down();
    monitor.setAddresses({interfaceAddress(3, "wlan0", "10.0.0.9")});
    dispatch.runAll();
    EXPECT_TRUE(engine.requests().empty());
    up();
    EXPECT_EQ(request().addresses, (std::vector<HostAddress>{{3, address("10.0.0.9")}}));
}

TEST_F(RegistrationTest, failsForGoodForWhatCannotBe)
{
    up();
    for (const DnsSdError error :
         {DnsSdError::InvalidName, DnsSdError::InvalidType, DnsSdError::NotPermitted}) {
        registration = nullptr;
        registration = add("Quillbox", registered);
        dispatch.runAll();
        emit(Failed{request().id, error});
        EXPECT_EQ(registered.last(),
                  (DnsSd::RegistrationUpdate{RegistrationState::Failed, error, "Quillbox"}));
        EXPECT_TRUE(engine.standing<RegisterRequest>().empty());
        down();
        up();
        dispatch.advance(120s);
        EXPECT_TRUE(engine.standing<RegisterRequest>().empty());
        EXPECT_EQ(registered.last().state, RegistrationState::Failed);
    }
}

TEST_F(RegistrationTest, triesAgainAfterOtherFailures)
{
    up();
    emit(Failed{request().id, DnsSdError::Internal});
    EXPECT_EQ(registered.last(), waiting(DnsSdError::Internal, "Quillbox"));
    dispatch.advance(500ms);
    EXPECT_EQ(request().name, "Quillbox");
    establish();
    EXPECT_EQ(registered.last(), ready("Quillbox"));
}

TEST_F(RegistrationTest, asksAnEngineThatIsFullAgainAndAgain)
{
    up();
    std::size_t asked = 1;
    for (const auto pause :
         {500ms, 500ms, 1000ms, 2000ms, 4000ms, 8000ms, 16000ms, 30000ms, 30000ms}) {
        emit(Failed{request().id, DnsSdError::TooManyEntries});
        EXPECT_EQ(registered.last(), waiting(DnsSdError::TooManyEntries, "Quillbox"));
        dispatch.advance(pause - 1ms);
        EXPECT_EQ(engine.count<RegisterRequest>(), asked);
        dispatch.advance(1ms);
        EXPECT_EQ(engine.count<RegisterRequest>(), ++asked);
    }
    establish();
    EXPECT_EQ(registered.last(), ready("Quillbox"));
}

TEST_F(RegistrationTest, asksNothingWhileTheEngineIsAway)
{
    up();
    emit(Failed{request().id, DnsSdError::Internal});
    const std::size_t asked = engine.requests().size();
    down();
    const auto last = registered.last();
    dispatch.advance(120s);
    EXPECT_EQ(engine.requests().size(), asked);
    EXPECT_EQ(registered.last(), last);
}

TEST_F(RegistrationTest, isNotRegisteredTwiceWhenARequestCrossesARestart)
{
    up();
    const Registrations second;
    const auto other = add("Quillbox Office", second);
    engine.down();
    engine.up();
    dispatch.runAll();
    const auto standing = engine.standing<RegisterRequest>();
    EXPECT_EQ(std::ranges::count(standing, "Quillbox Office", &RegisterRequest::name), 1);
    EXPECT_EQ(std::ranges::count(standing, "Quillbox", &RegisterRequest::name), 1);
}

TEST_F(RegistrationTest, doesNotProbeAgainForNamesThatItHadAMomentAgo)
{
    up();
    EXPECT_FALSE(request().isOwnName);
    establish();
    for (int restart = 0; restart < 3; ++restart) {
        down();
        dispatch.advance(kNameKept - 1ms);
        up();
        EXPECT_TRUE(request().isOwnName) << "a request that was not answered changes nothing";
    }
    establish();
    down();
    dispatch.advance(kNameKept);
    up();
    EXPECT_FALSE(request().isOwnName) << "others may have taken them";
}

TEST_F(RegistrationTest, probesForOtherNamesThanThoseThatItHad)
{
    up();
    establish();
    down();
    engine.up("other-pc.local");
    dispatch.runAll();
    EXPECT_FALSE(request().isOwnName) << "the host name contains the computer's";
    establish();
    collide();
    EXPECT_FALSE(request().isOwnName);
    down();
    up();
    EXPECT_FALSE(request().isOwnName) << "never established under the new name";
}

TEST_F(RegistrationTest, probesAgainAfterAFailure)
{
    up();
    establish();
    emit(Failed{request().id, DnsSdError::Internal});
    dispatch.advance(500ms);
    EXPECT_FALSE(request().isOwnName);
}

TEST_F(RegistrationTest, asksAgainWhenTheEngineForgets)
{
    up();
    dispatch.advance(kRegistrationLimit);
    EXPECT_EQ(registered.last(), waiting(DnsSdError::Internal, "Quillbox"));
    EXPECT_EQ(engine.count<StopRequest>(), 1U);
    dispatch.advance(500ms);
    EXPECT_EQ(engine.count<RegisterRequest>(), 2U);
    establish();
    dispatch.advance(120s);
    EXPECT_EQ(engine.count<RegisterRequest>(), 2U);
}

TEST_F(RegistrationTest, waitsForItsTurnAmongMany)
{
    up();
    std::vector<std::unique_ptr<DnsSd::Subscription>> others;
    for (std::size_t number = 1; number <= 2 * kRegistrationsAtOnce; ++number)
        others.push_back(dnsSd->registerService(
            {.name = "Quillbox " + std::to_string(number), .type = "_smb._tcp"}, 1,
            dispatch.mainQueue(), [](const auto&) {}));
    dispatch.advance(kRegistrationLimit - 1ms);
    EXPECT_EQ(engine.count<StopRequest>(), 0U);
    // The time limit of the last registration includes that of the batches before it.
    dispatch.advance(2 * kRegistrationLimit - 1ms);
    const auto standing = engine.standing<RegisterRequest>();
    EXPECT_TRUE(std::ranges::any_of(standing, [](const RegisterRequest& request) {
        return request.name == "Quillbox " + std::to_string(2 * kRegistrationsAtOnce);
    }));
    const auto stopped = engine.count<StopRequest>();
    EXPECT_GT(stopped, 0U);
    dispatch.advance(3ms);
    EXPECT_GT(engine.count<StopRequest>(), stopped);
}

TEST_F(RegistrationTest, givesAsManyAsAreRegisteredAtOnceTheTimeOfOne)
{
    up();
    std::vector<std::unique_ptr<DnsSd::Subscription>> others;
    for (std::size_t number = 1; number < kRegistrationsAtOnce; ++number)
        others.push_back(add("Quillbox " + std::to_string(number), Registrations()));
    dispatch.runAll();
    dispatch.advance(kRegistrationLimit);
    EXPECT_EQ(engine.count<StopRequest>(), kRegistrationsAtOnce);
}

TEST_F(RegistrationTest, sendsNoAddressesWhileTheEngineIsAway)
{
    up();
    establish();
    down();
    monitor.setAddresses({interfaceAddress(2, "eth0", "10.0.0.9")});
    dispatch.runAll();
    EXPECT_EQ(engine.count<UpdateAddressesRequest>(), 0U);
}

TEST_F(RegistrationTest, waitsWhereItStartsWhileTheEngineIsAway)
{
    down(DnsSdError::EngineUnavailable);
    const Registrations second;
    const auto other = add("Quillbox Office", second);
    dispatch.runAll();
    EXPECT_EQ(second.last(), waiting(DnsSdError::EngineUnavailable, "Quillbox Office"));
}

TEST_F(RegistrationTest, refusesWhatCannotBeWithoutAnEngine)
{
    const auto outcome = [this](const ServiceRegistration& service) {
        const Registrations log;
        const auto ask = dnsSd->registerService(service, 1, dispatch.mainQueue(), log.handler());
        dispatch.runAll();
        return log.last();
    };
    for (const std::string& name : {std::string(), std::string(64, 'x'), std::string("\xff")})
        EXPECT_EQ(outcome({name, "_smb._tcp"}).error, DnsSdError::InvalidName);
    EXPECT_EQ(outcome({"Name", "smb"}).error, DnsSdError::InvalidType);
    EXPECT_EQ(outcome({"Name", "smb"}).state, RegistrationState::Failed);
}

TEST_F(RegistrationTest, isWithdrawnWithTheSubscription)
{
    up();
    establish();
    const RequestId id = request().id;
    registration = nullptr;
    dispatch.runAll();
    EXPECT_EQ(engine.requests().back(), Request(StopRequest{id}));
    const Registrations again;
    const auto next = add("Quillbox", again);
    dispatch.runAll();
    EXPECT_TRUE(request().hostName.starts_with("quillbox-my-pc-"));
    EXPECT_FALSE(request().hostName.ends_with("-2.local")) << "the host name is free again";
}

TEST_F(RegistrationTest, ignoresEventsOfEarlierRequests)
{
    up();
    const RequestId first = request().id;
    collide();
    establish();
    emit(Collision{first, Collision::Of::Service});
    emit(Failed{first, DnsSdError::NotPermitted});
    EXPECT_EQ(registered.last(), ready("Quillbox #2"));
}

TEST_F(RegistrationTest, logsWhatBecomesOfAName)
{
    up();
    logged.time += 950ms;
    establish();
    dispatch.advance(kEstablishedLong);
    collide();
    collide(Collision::Of::Host);
    dispatch.advance(500ms);
    emit(Failed{request().id, DnsSdError::TooManyEntries});
    dispatch.advance(1000ms);
    registration = nullptr;
    dispatch.runAll();
    EXPECT_THAT(logged.lines,
                ElementsAre(R"(advertising: "Quillbox" is being registered)",
                            R"(advertising: "Quillbox" is advertised, after 950 ms)",
                            R"(advertising: "Quillbox" has a name conflict, after 950 ms)",
                            R"(advertising: "Quillbox" is withdrawn, after 950 ms)",
                            R"(advertising: "Quillbox #2" is being registered)",
                            R"(advertising: "Quillbox #2" has a host name conflict, after 0 ms)",
                            R"(advertising: "Quillbox #2" is withdrawn, after 0 ms)",
                            R"(advertising: "Quillbox #2" is being registered)",
                            R"(advertising: "Quillbox #2" )"
                                + make_error_code(DnsSdError::TooManyEntries).message()
                                + ", after 0 ms",
                            R"(advertising: "Quillbox #2" is withdrawn, after 0 ms)",
                            R"(advertising: "Quillbox #2" is being registered)",
                            R"(advertising: "Quillbox #2" is withdrawn, after 0 ms)"));
}

TEST_F(RegistrationTest, logsNoWithdrawalFromAnEngineThatIsDownOrStopped)
{
    const auto other = add("Other", registered);
    up();
    down();
    logged.lines.clear();
    registration = nullptr;
    dispatch.runAll();
    EXPECT_THAT(logged.lines, IsEmpty());
    up();
    logged.lines.clear();
    dnsSd = nullptr;
    EXPECT_THAT(logged.lines, IsEmpty());
}

} // namespace quillbox
