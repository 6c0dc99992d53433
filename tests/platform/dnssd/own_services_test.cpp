#include "platform/dnssd/operations/own_services.h"
#include "platform/dnssd/operations/registration.h"
#include "tests/platform/dnssd/center_fixture.h"

#include <string>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using namespace dnssd;
using Found = Recorder<std::optional<DnsSd::OwnService>>;

class OwnServicesTest : public CenterTest {
protected:
    OwnServicesTest()
    {
        monitor.setAddresses(
            {interfaceAddress(1, "lo", "127.0.0.1"), interfaceAddress(2, "eth0", "10.0.0.1")});
        dispatch.runAll();
    }

    std::unique_ptr<DnsSd::Subscription> add(const std::string& name, std::uint16_t port = 5000)
    {
        auto ask = dnsSd->registerService({name, "_smb._tcp"}, port, dispatch.mainQueue(),
                                          [](const auto&) {});
        dispatch.runAll();
        return ask;
    }

    std::unique_ptr<DnsSd::Subscription> find(const std::string& name, const Found& log,
                                              const std::string& type = "_smb._tcp")
    {
        auto ask = dnsSd->findOwn(name, type, dispatch.mainQueue(), log.handler());
        dispatch.runAll();
        return ask;
    }

    /// The result that is reported immediately.
    std::optional<DnsSd::OwnService> found(const std::string& name,
                                           const std::string& type = "_smb._tcp")
    {
        const Found log;
        const auto ask = find(name, log, type);
        EXPECT_EQ(log.count(), 1U);
        return log.last();
    }

    static std::string inNumbers(const Address& address)
    {
        const auto& bytes = address.bytes;
        return std::to_string(bytes[0]) + '.' + std::to_string(bytes[1]) + '.'
               + std::to_string(bytes[2]) + '.' + std::to_string(bytes[3]);
    }
};

} // namespace

TEST_F(OwnServicesTest, tellsWhereAServiceIsPublished)
{
    up();
    const auto registration = add("Quillbox Office");
    const auto request = engine.only<RegisterRequest>();
    const auto service = found("Quillbox Office");
    ASSERT_TRUE(service);
    EXPECT_EQ(service->hostName, request.hostName);
    EXPECT_EQ(service->onLoopback,
              (HostEndpoint{inNumbers(request.addresses.back().address), 5000}));
    EXPECT_TRUE(service->onLoopback.host.starts_with("127."));
}

TEST_F(OwnServicesTest, tellsNoneAtOnceOfWhatIsNotItsOwn)
{
    up();
    const auto registration = add("Quillbox");
    EXPECT_EQ(found("Quillbox Office"), std::nullopt);
    EXPECT_EQ(found("quillbox"), std::nullopt);
    EXPECT_EQ(found("Quillbox", "_ssh._tcp"), std::nullopt);
    EXPECT_TRUE(found("Quillbox", "_SMB._tcp"));
}

TEST_F(OwnServicesTest, keepsToTheNameThatWasAskedForWhenItIsChanged)
{
    up();
    const auto registration = add("Quillbox");
    emit(Collision{engine.only<RegisterRequest>().id, Collision::Of::Service});
    ASSERT_EQ(engine.only<RegisterRequest>().name, "Quillbox #2");
    const auto service = found("Quillbox");
    ASSERT_TRUE(service);
    EXPECT_EQ(service->hostName, engine.only<RegisterRequest>().hostName);
    EXPECT_EQ(found("Quillbox #2"), std::nullopt);
}

TEST_F(OwnServicesTest, tellsAHostNameThatIsChanged)
{
    up();
    const auto registration = add("Quillbox");
    const Found log;
    const auto ask = find("Quillbox", log);
    const auto first = log.last();
    emit(Collision{engine.only<RegisterRequest>().id, Collision::Of::Host});
    ASSERT_TRUE(log.last());
    EXPECT_NE(log.last(), first);
    EXPECT_EQ(log.last()->hostName, engine.only<RegisterRequest>().hostName);
    EXPECT_EQ(log.last()->onLoopback, first->onLoopback);
}

TEST_F(OwnServicesTest, knowsAServiceByEveryUnicodeFormOfItsName)
{
    up();
    const auto registration = add("Ku\u0308che");
    EXPECT_TRUE(found("K\u00fcche"));
}

TEST_F(OwnServicesTest, knowsAServiceBeforeAnyEngineDoes)
{
    const auto registration = add("Quillbox");
    const Found log;
    const auto ask = find("Quillbox", log);
    ASSERT_TRUE(log.last()) << "its port is open all the same";
    const HostEndpoint before = log.last()->onLoopback;
    down();
    EXPECT_TRUE(log.last());
    up();
    EXPECT_EQ(log.last()->hostName, engine.only<RegisterRequest>().hostName);
    EXPECT_EQ(log.last()->onLoopback, before);
    down();
    EXPECT_TRUE(log.last());
}

TEST_F(OwnServicesTest, tellsWhetherAServiceIsPublished)
{
    const auto registration = add("Quillbox");
    const Found log;
    const auto ask = find("Quillbox", log);
    const auto isPublished = [&log] { return log.last()->isPublished; };
    EXPECT_FALSE(isPublished());
    up();
    EXPECT_FALSE(isPublished()) << "it is being probed for";
    emit(Registered{engine.only<RegisterRequest>().id});
    EXPECT_TRUE(isPublished());
    down();
    EXPECT_FALSE(isPublished());
    up();
    emit(Registered{engine.only<RegisterRequest>().id});
    EXPECT_TRUE(isPublished());
    emit(Collision{engine.only<RegisterRequest>().id, Collision::Of::Host});
    EXPECT_FALSE(isPublished());
}

TEST_F(OwnServicesTest, tellsThatAServiceIsNotPublishedDuringThePauseAfterACollision)
{
    engine.up();
    const auto ask = add("Quillbox");
    // The first one is followed by no pause.
    for (int count = 0; count < 2; ++count) {
        emit(Registered{engine.only<RegisterRequest>().id});
        EXPECT_TRUE(found("Quillbox")->isPublished);
        emit(Collision{engine.only<RegisterRequest>().id, Collision::Of::Service});
    }
    EXPECT_TRUE(engine.standing<RegisterRequest>().empty());
    EXPECT_FALSE(found("Quillbox")->isPublished);
}

TEST_F(OwnServicesTest, tellsOfServicesThatComeAndGo)
{
    up();
    const Found log;
    const auto ask = find("Quillbox", log);
    EXPECT_EQ(log.last(), std::nullopt);
    auto registration = add("Quillbox");
    EXPECT_TRUE(log.last());
    registration = nullptr;
    dispatch.runAll();
    EXPECT_EQ(log.last(), std::nullopt);
}

TEST_F(OwnServicesTest, tellsOfTheNewerOfTwoUntilItIsTheOnlyOne)
{
    up();
    const Found log;
    const auto ask = find("Quillbox", log);
    auto older = add("Quillbox", 5001);
    auto newer = add("Quillbox", 5002);
    EXPECT_EQ(log.last()->onLoopback.port, 5002);
    older = nullptr;
    dispatch.runAll();
    EXPECT_EQ(log.last()->onLoopback.port, 5002);
    older = std::move(newer);
    newer = add("Quillbox", 5003);
    EXPECT_EQ(log.last()->onLoopback.port, 5003);
    newer = nullptr;
    dispatch.runAll();
    EXPECT_EQ(log.last()->onLoopback.port, 5002);
}

TEST_F(OwnServicesTest, givesTwoServicesAddressesOfTheirOwn)
{
    up();
    const auto one = add("One");
    const auto two = add("Two");
    EXPECT_NE(found("One")->onLoopback.host, found("Two")->onLoopback.host);
    EXPECT_NE(found("One")->hostName, found("Two")->hostName);
}

TEST_F(OwnServicesTest, doesNotTellOfAServiceThatFailedForGood)
{
    up();
    const auto registration = add("Quillbox");
    ASSERT_TRUE(found("Quillbox"));
    emit(Failed{engine.only<RegisterRequest>().id, DnsSdError::NotPermitted});
    EXPECT_EQ(found("Quillbox"), std::nullopt);
    const std::string tooLong(64, 'x');
    const auto refused = add(tooLong);
    EXPECT_EQ(found(tooLong), std::nullopt);
}

TEST_F(OwnServicesTest, isSilentOnceNobodyAsks)
{
    up();
    const Found log;
    auto ask = find("Quillbox", log);
    ask = nullptr;
    dispatch.runAll();
    const auto registration = add("Quillbox");
    EXPECT_EQ(log.count(), 1U);
}

} // namespace quillbox
