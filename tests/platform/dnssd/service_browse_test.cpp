#include "platform/dnssd/operations/service_browse.h"
#include "tests/platform/dnssd/center_fixture.h"

#include <algorithm>
#include <string>

#include <malloc.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;
using namespace dnssd;
using BrowseState = DnsSd::BrowseUpdate::State;

class ServiceBrowseTest : public CenterTest {
protected:
    ServiceBrowseTest() { dispatch.runAll(); }

    RequestId id() const { return engine.only<BrowseRequest>().id; }

    ServiceAnswer found(const std::string& name, Sighting sighting = kWired) const
    {
        return {id(), Change::Found, sighting, {name, "_smb._tcp", "local"}};
    }

    ServiceAnswer lost(const std::string& name, Sighting sighting = kWired) const
    {
        return {id(), Change::Lost, sighting, {name, "_smb._tcp", "local"}};
    }

    /// The SRV record of a service is found or lost.
    static LocationAnswer alive(RequestId life, Sighting sighting = kWired)
    {
        return {life, Change::Found, sighting, {"phone.local", 4445}};
    }

    static LocationAnswer dead(RequestId life, Sighting sighting = kWired)
    {
        return {life, Change::Lost, sighting, {"phone.local", 4445}};
    }

    /// The id of the active location query that checks the liveness of a service; 0 if there is
    /// none.
    RequestId lifeOf(const std::string& name) const
    {
        for (const auto& request : engine.standing<LocationRequest>()) {
            if (request.service.name == name)
                return request.id;
        }
        return 0;
    }

    std::vector<std::string> names() const
    {
        std::vector<std::string> result;
        for (const auto& service : browsed.last().services)
            result.push_back(service.name);
        return result;
    }

    /// The number of sets delivered in the Ready state, without consecutive duplicates.
    std::size_t setCount() const
    {
        std::vector<ServiceEndpoint> last;
        std::size_t count = 0;
        for (const auto& update : browsed.all()) {
            if (update.state == BrowseState::Ready && update.services != last) {
                last = update.services;
                ++count;
            }
        }
        return count;
    }

    using Names = std::vector<std::string>;

    Recorder<DnsSd::BrowseUpdate> browsed;
    std::unique_ptr<DnsSd::Subscription> browse =
        dnsSd->browse("_smb._tcp", dispatch.mainQueue(), browsed.handler());
};

} // namespace

TEST_F(ServiceBrowseTest, saysNothingUntilTheEngineHasSaidHowItIs)
{
    dispatch.advance(10s);
    EXPECT_EQ(browsed.count(), 0U);
    EXPECT_TRUE(engine.requests().empty());
}

TEST_F(ServiceBrowseTest, waitsWhileThereIsNoEngine)
{
    down();
    EXPECT_EQ(browsed.last().state, BrowseState::Waiting);
    EXPECT_EQ(browsed.last().error, DnsSdError::EngineUnavailable);
    down(std::make_error_code(std::errc::permission_denied));
    EXPECT_EQ(browsed.last().error, std::errc::permission_denied);
}

TEST_F(ServiceBrowseTest, deliversTheFirstServiceAtOnce)
{
    up();
    EXPECT_EQ(browsed.last().state, BrowseState::Ready);
    const auto before = dispatch.now();
    emit(found("Quillbox"));
    EXPECT_EQ(dispatch.now(), before);
    EXPECT_EQ(browsed.last().services,
              (std::vector<ServiceEndpoint>{{"Quillbox", "_smb._tcp", "local"}}));
}

TEST_F(ServiceBrowseTest, whatChangesNoSetDeliversNone)
{
    up();
    emit(found("Quillbox"));
    dispatch.advance(1s);
    const auto before = browsed.count();
    emit(found("Quillbox", kWiredIPv6));
    emit(found("Quillbox", kWireless));
    emit(lost("Quillbox", kWireless));
    for (const Sighting& sighting : {kWired, kWiredIPv6})
        emit(alive(lifeOf("Quillbox"), sighting));
    emit(dead(lifeOf("Quillbox")));
    dispatch.advance(1s);
    EXPECT_EQ(browsed.count(), before);
    emit(dead(lifeOf("Quillbox"), kWiredIPv6));
    dispatch.advance(1s);
    EXPECT_EQ(browsed.count(), before + 1);
    EXPECT_EQ(names(), Names{});
}

TEST_F(ServiceBrowseTest, keepsAServiceWhoseLocationIsLostBeforeItWasFound)
{
    up();
    emit(found("Quillbox"));
    emit(dead(lifeOf("Quillbox")));
    dispatch.advance(1s);
    EXPECT_EQ(names(), Names{"Quillbox"});
}

TEST_F(ServiceBrowseTest, aFloodBeyondTheLimitDeliversNothing)
{
    up();
    for (std::size_t number = 0; number < kMaximumServices; ++number)
        emit(found("Quillbox " + std::to_string(number)));
    dispatch.advance(1s);
    const auto before = browsed.count();
    for (int number = 0; number < 1000; ++number)
        emit(found("Printer " + std::to_string(number)));
    dispatch.advance(1s);
    EXPECT_EQ(browsed.count(), before);
}

TEST_F(ServiceBrowseTest, listsAServiceForAsLongAsAnythingSeesIt)
{
    up();
    emit(found("Quillbox", kWired));
    emit(found("Quillbox", kWiredIPv6));
    emit(found("Quillbox", kWireless));
    emit(found("Quillbox", kWireless));
    dispatch.advance(1s);
    EXPECT_EQ(setCount(), 1U);
    emit(lost("Quillbox", kWired));
    emit(lost("Quillbox", kWireless));
    dispatch.advance(1s);
    EXPECT_EQ(names(), Names{"Quillbox"});
    emit(lost("Quillbox", kWiredIPv6));
    dispatch.advance(1s);
    EXPECT_EQ(names(), Names{});
    EXPECT_EQ(setCount(), 2U);
}

TEST_F(ServiceBrowseTest, ignoresLossesOfWhatItNeverSaw)
{
    up();
    emit(found("Quillbox", kWired));
    emit(lost("Quillbox", kWireless));
    emit(lost("Nobody", kWired));
    dispatch.advance(1s);
    EXPECT_EQ(names(), Names{"Quillbox"});
}

TEST_F(ServiceBrowseTest, keepsTheOrderOfFirstSight)
{
    up();
    emit(found("b"));
    emit(found("a"));
    emit(found("c"));
    emit(found("b", kWireless));
    dispatch.advance(1s);
    EXPECT_EQ(names(), (Names{"b", "a", "c"}));
}

TEST_F(ServiceBrowseTest, comparesNamesAsDnsDoes)
{
    up();
    emit(found("Quillbox", kWired));
    emit(found("QUILLBOX", kWireless));
    emit(lost("quillbox", kWired));
    dispatch.advance(1s);
    EXPECT_EQ(names(), Names{"Quillbox"});
}

TEST_F(ServiceBrowseTest, dropsWhatNoServiceOfTheTypeCanBe)
{
    up();
    emit(ServiceAnswer{id(), Change::Found, kWired, {"other", "_http._tcp", "local"}});
    emit(found(""));
    emit(found(std::string(64, 'x')));
    emit(found("bad\xff"));
    emit(found(std::string("zero\0byte", 9)));
    emit(ServiceAnswer{id(), Change::Found, kWired, {"no domain", "_smb._tcp", ""}});
    emit(ServiceAnswer{id() + 1, Change::Found, kWired, {"another query", "_smb._tcp", "local"}});
    emit(ServiceAnswer{id(), Change::Found, kWired, {"Quillbox", "_SMB._TCP", "local"}});
    dispatch.advance(1s);
    EXPECT_EQ(browsed.last().services,
              (std::vector<ServiceEndpoint>{{"Quillbox", "_smb._tcp", "local"}}));
}

TEST_F(ServiceBrowseTest, carriesHostileNamesVerbatim)
{
    up();
    const Names hostile{"<img src=x>", "line\nbreak",      "\xe2\x80\xae right to left\xe2\x80\xac",
                        "%n%s",        "../../etc/passwd", "a.b\\c"};
    for (const auto& name : hostile)
        emit(found(name));
    dispatch.advance(1s);
    EXPECT_EQ(names(), hostile);
}

TEST_F(ServiceBrowseTest, lists256OfTenThousandServices)
{
    up();
    testing::internal::CaptureStderr();
    for (int i = 0; i < 10'000; ++i)
        engine.emit(found("Service " + std::to_string(i)));
    dispatch.advance(1s);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::ranges::count(said, '\n'), 1);
    EXPECT_NE(said.find("_smb._tcp"), std::string::npos);
    ASSERT_EQ(names().size(), kMaximumServices);
    EXPECT_EQ(names().front(), "Service 0");
    EXPECT_EQ(names().back(), "Service 255");
    EXPECT_EQ(engine.count<LocationRequest>(), kMaximumServices);
    EXPECT_LE(setCount(), 3U);
}

TEST_F(ServiceBrowseTest, givesAFreedPlaceToWhatIsSeenNext)
{
    up();
    testing::internal::CaptureStderr();
    for (std::size_t i = 0; i <= kMaximumServices; ++i)
        engine.emit(found("Service " + std::to_string(i)));
    emit(lost("Service 7"));
    emit(found("Newcomer"));
    dispatch.advance(1s);
    emit(found("Nobody any more"));
    dispatch.advance(1s);
    EXPECT_EQ(std::ranges::count(testing::internal::GetCapturedStderr(), '\n'), 1);
    EXPECT_EQ(names().size(), kMaximumServices);
    EXPECT_EQ(names().back(), "Newcomer");
    EXPECT_EQ(engine.standing<LocationRequest>().size(), kMaximumServices);
}

TEST_F(ServiceBrowseTest, asksForWhatWasLeftOutWhenThereIsRoom)
{
    up();
    testing::internal::CaptureStderr();
    for (std::size_t i = 0; i < kMaximumServices; ++i)
        emit(found("Service " + std::to_string(i)));
    emit(found("Left out"));
    dispatch.advance(1s);
    const RequestId first = id();
    emit(lost("Service 7"));
    emit(lost("Service 9"));
    dispatch.advance(kRoomInterval - 1ms);
    ASSERT_EQ(id(), first);
    dispatch.advance(1ms);
    ASSERT_NE(id(), first);

    // An engine reports services in no particular order.
    emit(found("Left out"));
    for (std::size_t i = kMaximumServices; i-- > 0;) {
        if (i != 7 && i != 9)
            emit(found("Service " + std::to_string(i)));
    }
    emit(Settled{id()});
    dispatch.advance(1s);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(names().size(), kMaximumServices - 1);
    EXPECT_EQ(names().front(), "Service 0");
    EXPECT_EQ(names().back(), "Left out");
    const RequestId second = id();
    emit(lost("Service 0"));
    dispatch.advance(10 * kRoomInterval);
    EXPECT_EQ(id(), second) << "nothing is left out any more";
}

TEST_F(ServiceBrowseTest, dropsWhatTheSameEngineDoesNotReportAgainSoon)
{
    testing::internal::CaptureStderr();
    up();
    for (std::size_t i = 0; i <= kMaximumServices; ++i)
        emit(found("Service " + std::to_string(i)));
    dispatch.advance(1s);
    const RequestId first = id();
    emit(lost("Service 0"));
    dispatch.advance(kRoomInterval);
    ASSERT_NE(id(), first);
    emit(found("Service 1"));
    dispatch.advance(kSettlingLimit - 1ms);
    EXPECT_EQ(names().size(), kMaximumServices - 1);
    dispatch.advance(1s);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(names(), Names{"Service 1"});
}

TEST_F(ServiceBrowseTest, keepsWhatWasListedBeforeWhateverAnEngineTellsFirst)
{
    testing::internal::CaptureStderr();
    up();
    for (std::size_t i = 0; i < kMaximumServices; ++i)
        emit(found("Service " + std::to_string(i)));
    dispatch.advance(1s);
    const auto before = names();
    down();
    up();
    for (int i = 0; i < 100; ++i)
        emit(found("Stranger " + std::to_string(i)));
    for (const auto& name : before)
        emit(found(name));
    emit(Settled{id()});
    dispatch.advance(1s);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(names(), before);
    const RequestId asked = id();
    emit(lost("Service 3"));
    dispatch.advance(kRoomInterval);
    EXPECT_NE(id(), asked) << "the strangers were left out";
}

TEST_F(ServiceBrowseTest, asksNoMoreForWhatWasLeftOutWhenThePlaceIsTaken)
{
    up();
    testing::internal::CaptureStderr();
    for (std::size_t i = 0; i <= kMaximumServices; ++i)
        emit(found("Service " + std::to_string(i)));
    const RequestId asked = id();
    emit(lost("Service 7"));
    emit(found("Newcomer"));
    dispatch.advance(10 * kRoomInterval);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(id(), asked);
}

TEST_F(ServiceBrowseTest, deliversAtMostTenSetsASecondOfAServiceThatFlaps)
{
    up();
    emit(found("Steady"));
    dispatch.advance(1s);
    const std::size_t before = browsed.count();
    const std::size_t askedBefore = engine.requests().size();
    for (int i = 0; i < 100; ++i) {
        emit(i % 2 == 0 ? Event(found("Flapping")) : Event(lost("Flapping")));
        dispatch.advance(10ms);
        EXPECT_LE(engine.standing<LocationRequest>().size(), 2U);
    }
    EXPECT_LE(browsed.count() - before, 10U);
    EXPECT_GE(browsed.count() - before, 1U);
    EXPECT_LE(engine.requests().size() - askedBefore, 22U);
    dispatch.advance(1s);
    EXPECT_EQ(names(), Names{"Steady"}) << "the final set is delivered";
}

TEST_F(ServiceBrowseTest, deliversTheLatestSetOnceItMay)
{
    up();
    emit(found("a"));
    emit(found("b"));
    emit(found("c"));
    EXPECT_EQ(names(), Names{"a"});
    dispatch.advance(99ms);
    EXPECT_EQ(names(), Names{"a"});
    dispatch.advance(1ms);
    EXPECT_EQ(names(), (Names{"a", "b", "c"}));
    dispatch.advance(10s);
    EXPECT_EQ(setCount(), 2U);
}

TEST_F(ServiceBrowseTest, keepsWhatWasListedUntilTheNextEngineHasAskedForItInVainForLong)
{
    up();
    emit(found("stays"));
    emit(found("leaves"));
    dispatch.advance(1s);
    const RequestId first = id();
    down();
    EXPECT_EQ(browsed.last().state, BrowseState::Waiting);
    up();
    EXPECT_NE(id(), first);
    EXPECT_EQ(browsed.last().state, BrowseState::Ready);
    emit(found("new"));
    emit(found("stays"));
    emit(
        ServiceAnswer{first, Change::Found, kWired, {"from the old engine", "_smb._tcp", "local"}});
    emit(Settled{id()});
    dispatch.advance(kSilenceLimit - 1ms);
    EXPECT_EQ(names(), (Names{"stays", "leaves", "new"}));
    dispatch.advance(1s);
    EXPECT_EQ(names(), (Names{"stays", "new"}));
    EXPECT_EQ(engine.standing<LocationRequest>().size(), 2U);
}

TEST_F(ServiceBrowseTest, keepsAServiceWhoseLocationTheNextEngineFinds)
{
    up();
    emit(found("Quillbox"));
    dispatch.advance(1s);
    emit(alive(lifeOf("Quillbox")));
    down();
    up();
    emit(alive(lifeOf("Quillbox")));
    dispatch.advance(10 * kSilenceLimit);
    EXPECT_EQ(names(), Names{"Quillbox"}) << "only the answer with its name was lost";
    emit(dead(lifeOf("Quillbox")));
    dispatch.advance(1s);
    EXPECT_EQ(names(), Names{});
    EXPECT_TRUE(engine.standing<LocationRequest>().empty());
}

TEST_F(ServiceBrowseTest, dropsAServiceThatSaysGoodbyeToTheNextEngineAtOnce)
{
    up();
    emit(found("one"));
    emit(found("other"));
    dispatch.advance(1s);
    emit(alive(lifeOf("other")));
    down();
    up();
    emit(found("one"));
    emit(lost("one"));
    emit(alive(lifeOf("other")));
    emit(dead(lifeOf("other")));
    dispatch.advance(1s);
    EXPECT_EQ(names(), Names{});
}

TEST_F(ServiceBrowseTest, countsTheSilenceFromTheLastRestart)
{
    up();
    emit(found("Quillbox"));
    emit(found("without a location"));
    dispatch.advance(1s);
    emit(alive(lifeOf("Quillbox")));
    for (int restart = 0; restart < 3; ++restart) {
        down();
        up();
        dispatch.advance(kSilenceLimit - 1s);
        EXPECT_EQ(names(), (Names{"Quillbox", "without a location"}));
    }
    dispatch.advance(2s);
    EXPECT_EQ(names(), Names{});
}

TEST_F(ServiceBrowseTest, aFloodAfterARestartTakesNoPlaceAndEndsNoService)
{
    testing::internal::CaptureStderr();
    up();
    emit(found("Quillbox"));
    dispatch.advance(1s);
    emit(alive(lifeOf("Quillbox")));
    down();
    up();
    const auto flood = [this] {
        for (std::size_t i = 0; i < kMaximumServices; ++i)
            emit(found("Stranger " + std::to_string(i)));
    };
    flood();
    for (int round = 0; round < 5; ++round) {
        const RequestId asked = id();
        dispatch.advance(kSilenceLimit);
        EXPECT_NE(id(), asked) << "the query must show whether the flood is over";
        EXPECT_EQ(names().front(), "Quillbox");
        EXPECT_EQ(names().size(), kMaximumServices);
        flood();
    }
    dispatch.advance(2 * kSilenceLimit + 1s);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(names(), Names{}) << "nobody was seen since the flood ended";
}

TEST_F(ServiceBrowseTest, doesNotDeliverTheSameSetAgainAsNews)
{
    up();
    emit(found("a"));
    emit(found("b"));
    dispatch.advance(1s);
    const auto before = browsed.last();
    down();
    up();
    emit(found("b"));
    emit(found("a"));
    emit(Settled{id()});
    dispatch.advance(1s);
    EXPECT_EQ(browsed.last(), before) << "the order of first sight is kept";
    EXPECT_EQ(setCount(), 2U);
}

TEST_F(ServiceBrowseTest, aServiceThatLeavesInAFloodIsGone)
{
    testing::internal::CaptureStderr();
    up();
    emit(found("Quillbox"));
    dispatch.advance(1s);
    emit(alive(lifeOf("Quillbox")));
    down();
    up();
    for (std::size_t i = 0; i < kMaximumServices; ++i)
        emit(found("Stranger " + std::to_string(i)));
    dispatch.advance(kSilenceLimit + 1s);
    EXPECT_EQ(names().front(), "Quillbox");
    emit(alive(lifeOf("Quillbox")));
    emit(dead(lifeOf("Quillbox")));
    dispatch.advance(1s);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(names().front(), "Stranger 0");
}

TEST_F(ServiceBrowseTest, treatsAnEngineThatCameBackUnseenAsANewOne)
{
    up();
    emit(found("old"));
    const RequestId first = id();
    up();
    emit(found("new"));
    emit(ServiceAnswer{first, Change::Found, kWired, {"late", "_smb._tcp", "local"}});
    dispatch.advance(1s);
    EXPECT_EQ(names(), (Names{"old", "new"}));
    dispatch.advance(kSilenceLimit);
    EXPECT_EQ(names(), Names{"new"});
}

TEST_F(ServiceBrowseTest, staysBoundedOverManyChangesOfTheEngine)
{
    testing::internal::CaptureStderr();
    for (int round = 0; round < 20; ++round) {
        up();
        for (int i = 0; i < 300; ++i)
            emit(found(std::to_string(round) + " " + std::to_string(i)));
        EXPECT_LE(engine.standing<LocationRequest>().size(), kMaximumServices);
        EXPECT_LE(names().size(), kMaximumServices);
        down();
    }
    up();
    emit(found("Quillbox"));
    dispatch.advance(kSilenceLimit + kRoomInterval + 1s);
    emit(found("Quillbox"));
    dispatch.advance(1s);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(names(), Names{"Quillbox"}) << "the query was sent again when there was room";
    EXPECT_EQ(engine.standing<LocationRequest>().size(), 1U);
}

TEST_F(ServiceBrowseTest, keepsABoundedNumberOfSightings)
{
    up();
    const auto at = [](std::size_t index) {
        return Sighting{static_cast<int>(index), Family::IPv4};
    };
    for (std::size_t i = 0; i <= kMaximumSightings; ++i)
        emit(found("Quillbox", at(i)));
    for (std::size_t i = 0; i < kMaximumSightings; ++i)
        emit(lost("Quillbox", at(i)));
    dispatch.advance(1s);
    EXPECT_EQ(names(), Names{}) << "the one beyond the limit is not kept";
}

TEST_F(ServiceBrowseTest, sharesTheLocationQueryWithAResolutionThatOutlivesIt)
{
    // Fills freed memory, so that a call of a destroyed object crashes.
    mallopt(M_PERTURB, 0xa5);
    up();
    emit(found("Quillbox"));
    Recorder<DnsSd::ResolveUpdate> resolved;
    const auto resolution = dnsSd->resolve(ServiceEndpoint{"Quillbox", "_smb._tcp", "local"},
                                           dispatch.mainQueue(), resolved.handler());
    dispatch.advance(1s);
    const RequestId life = lifeOf("Quillbox");
    EXPECT_EQ(engine.count<LocationRequest>(), 1U);
    emit(found("Other"));
    dispatch.advance(1s);
    emit(lost("Quillbox"));
    dispatch.advance(1s);
    const std::size_t sets = browsed.count();
    emit(alive(life));
    emit(dead(life));
    dispatch.advance(1s);
    EXPECT_EQ(browsed.count(), sets) << "the ended liveness check is not notified";
    browse = nullptr;
    dispatch.runAll();
    emit(alive(life));
    EXPECT_EQ(engine.standing<AddressRequest>().size(), 2U);
    mallopt(M_PERTURB, 0);
}

TEST_F(ServiceBrowseTest, takesAServiceOutWhoseLocationRanOutAndBackWhenItIsFound)
{
    up();
    emit(found("Quillbox"));
    const RequestId life = lifeOf("Quillbox");
    ASSERT_NE(life, 0U);
    emit(alive(life));
    emit(alive(life, kWireless));
    dispatch.advance(1s);
    emit(dead(life));
    dispatch.advance(1s);
    EXPECT_EQ(names(), Names{"Quillbox"}) << "one interface still sees it";
    emit(dead(life, kWireless));
    EXPECT_EQ(names(), Names{});
    dispatch.advance(60s);
    EXPECT_EQ(lifeOf("Quillbox"), life) << "the query is still active";
    emit(alive(life));
    dispatch.advance(1s);
    EXPECT_EQ(names(), Names{"Quillbox"});
}

TEST_F(ServiceBrowseTest, keepsAServiceWhoseLocationIsNeverFound)
{
    up();
    emit(found("Quillbox"));
    emit(Settled{lifeOf("Quillbox")});
    dispatch.advance(300s);
    EXPECT_EQ(names(), Names{"Quillbox"});
    emit(Failed{lifeOf("Quillbox"), DnsSdError::TooManyEntries});
    dispatch.advance(300s);
    EXPECT_EQ(names(), Names{"Quillbox"});
    down();
    up();
    emit(found("Quillbox"));
    dispatch.advance(300s);
    EXPECT_EQ(names(), Names{"Quillbox"}) << "nothing is known that could run out";
}

TEST_F(ServiceBrowseTest, remembersThatAServiceWasDeadWhenTheEngineChanges)
{
    up();
    emit(found("dead"));
    emit(found("alive"));
    dispatch.advance(1s);
    emit(alive(lifeOf("dead")));
    emit(dead(lifeOf("dead")));
    dispatch.advance(1s);
    EXPECT_EQ(names(), Names{"alive"});
    down();
    up();
    emit(found("dead"));
    emit(found("alive"));
    emit(Settled{id()});
    dispatch.advance(1s);
    EXPECT_EQ(names(), Names{"alive"});
    emit(alive(lifeOf("dead")));
    dispatch.advance(1s);
    EXPECT_EQ(names(), (Names{"dead", "alive"}));
}

TEST_F(ServiceBrowseTest, remembersADeathThatItHadNoTimeToTell)
{
    up();
    emit(found("Quillbox"));
    emit(alive(lifeOf("Quillbox")));
    emit(dead(lifeOf("Quillbox")));
    EXPECT_EQ(names(), Names{"Quillbox"}) << "the next set is not due yet";
    down();
    up();
    emit(found("Quillbox"));
    emit(Settled{id()});
    dispatch.advance(1s);
    EXPECT_EQ(names(), Names{});
}

TEST_F(ServiceBrowseTest, keepsAServiceWhoseLocationTheNextEngineHasNotFoundYet)
{
    up();
    emit(found("Quillbox"));
    emit(alive(lifeOf("Quillbox")));
    down();
    up();
    emit(found("Quillbox"));
    emit(Settled{id()});
    emit(Settled{lifeOf("Quillbox")});
    dispatch.advance(kSilenceLimit - 1ms);
    EXPECT_EQ(names(), Names{"Quillbox"});
    dispatch.advance(1s);
    EXPECT_EQ(names(), Names{});
}

TEST_F(ServiceBrowseTest, failsForGoodForAnInvalidTypeOnly)
{
    up();
    emit(Failed{id(), DnsSdError::InvalidType});
    EXPECT_EQ(browsed.last().state, BrowseState::Failed);
    EXPECT_EQ(browsed.last().error, DnsSdError::InvalidType);
    down();
    up();
    EXPECT_EQ(browsed.last().state, BrowseState::Failed);
    EXPECT_EQ(engine.count<BrowseRequest>(), 1U);
}

TEST_F(ServiceBrowseTest, asksAgainAfterAGrowingPauseWhenTheEngineCannot)
{
    up();
    emit(found("Quillbox"));
    emit(Failed{id(), DnsSdError::TooManyEntries});
    EXPECT_EQ(browsed.last().state, BrowseState::Waiting);
    EXPECT_EQ(browsed.last().error, DnsSdError::TooManyEntries);
    dispatch.advance(499ms);
    EXPECT_EQ(engine.count<BrowseRequest>(), 1U);
    dispatch.advance(1ms);
    EXPECT_EQ(engine.count<BrowseRequest>(), 2U);
    emit(Failed{id(), DnsSdError::TooManyEntries});
    dispatch.advance(999ms);
    EXPECT_EQ(engine.count<BrowseRequest>(), 2U);
    dispatch.advance(1ms);
    emit(found("Quillbox"));
    emit(Settled{id()});
    EXPECT_EQ(browsed.last().state, BrowseState::Ready);
    EXPECT_EQ(names(), Names{"Quillbox"});
}

TEST_F(ServiceBrowseTest, pausesBrieflyAgainAfterAnAnswerAndWithANewEngine)
{
    const auto failTwice = [this] {
        for (const auto pause : {500ms, 1000ms}) {
            const std::size_t asked = engine.count<BrowseRequest>();
            emit(Failed{id(), DnsSdError::TooManyEntries});
            dispatch.advance(pause - 1ms);
            EXPECT_EQ(engine.count<BrowseRequest>(), asked);
            dispatch.advance(1ms);
            EXPECT_EQ(engine.count<BrowseRequest>(), asked + 1);
        }
    };
    up();
    failTwice();
    emit(Settled{id()});
    failTwice();
    down();
    up();
    failTwice();
}

TEST_F(ServiceBrowseTest, asksNothingWhileTheEngineIsAwayAndOnlyOnceWhenItIsBack)
{
    up();
    emit(Failed{id(), DnsSdError::TooManyEntries});
    EXPECT_EQ(engine.count<StopRequest>(), 1U) << "the engine may still have the query";
    down();
    dispatch.advance(60s);
    EXPECT_EQ(engine.count<BrowseRequest>(), 1U);
    up();
    emit(Failed{id(), DnsSdError::TooManyEntries});
    down();
    up();
    dispatch.advance(60s);
    EXPECT_EQ(engine.count<BrowseRequest>(), 3U);
}

TEST_F(ServiceBrowseTest, endsItsQueriesWithTheSubscription)
{
    up();
    emit(found("Quillbox"));
    EXPECT_EQ(engine.standing<LocationRequest>().size(), 1U);
    browse = nullptr;
    dispatch.runAll();
    EXPECT_TRUE(engine.standing<BrowseRequest>().empty());
    EXPECT_TRUE(engine.standing<LocationRequest>().empty());
    const std::size_t before = browsed.count();
    emit(found("Late"));
    dispatch.advance(1s);
    EXPECT_EQ(browsed.count(), before);
}

TEST_F(ServiceBrowseTest, goesOnWaitingThoughAServiceChangesMeanwhile)
{
    up();
    emit(found("Quillbox"));
    const RequestId life = lifeOf("Quillbox");
    emit(alive(life));
    dispatch.advance(1s);
    engine.emit(Failed{id(), DnsSdError::TooManyEntries});
    emit(dead(life));
    EXPECT_EQ(browsed.last().state, BrowseState::Waiting);
}

TEST_F(ServiceBrowseTest, doesNotAskForWhatWasLeftOutWithoutAnEngine)
{
    up();
    testing::internal::CaptureStderr();
    for (std::size_t i = 0; i <= kMaximumServices; ++i)
        engine.emit(found("Service " + std::to_string(i)));
    dispatch.advance(1s);
    emit(lost("Service 7"));
    const auto before = engine.count<BrowseRequest>();
    down();
    dispatch.advance(10 * kRoomInterval);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(engine.count<BrowseRequest>(), before);
}

} // namespace quillbox
