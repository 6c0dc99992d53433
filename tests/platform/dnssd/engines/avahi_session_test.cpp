#include "platform/dnssd/avahi/avahi_session.h"
#include "tests/platform/dnssd/engines/start_time.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include <avahi-common/domain.h>
#include <avahi-common/error.h>
#include <gmock/gmock.h>

namespace quillbox::dnssd {

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

/// A fake of the Avahi API, controlled by the test.
class FakeAvahi final : public AvahiApi {
public:
    class Group;
    class Query;

    std::unique_ptr<AvahiObject> browse(const std::string& type, AvahiAnswers answers) override;
    std::unique_ptr<AvahiObject> lookUp(const std::string& name, Record record,
                                        AvahiAnswers answers) override;
    std::unique_ptr<AvahiGroup> makeGroup(AvahiGroupWatcher& watcher) override;
    int lastError() override { return error; }
    std::string domainName() override { return "local"; }

    /// The group with this content, like "Name" or "host.local 3" (3 is the interface index); null
    /// if there is none.
    Group* group(const std::string& content);

    std::vector<Query*> queries;
    std::vector<Group*> groups;
    std::size_t groupsMade = 0;
    std::size_t mostGroups = 0; ///< that there were at a time
    int error = AVAHI_OK;       ///< of all calls that create an object
    int addRecordError = AVAHI_OK;
    bool makesNoGroups = false; ///< without an error
};

class FakeAvahi::Query final : public AvahiObject {
public:
    Query(FakeAvahi& theAvahi, std::string theSubject, AvahiAnswers theAnswers)
        : avahi(theAvahi), subject(std::move(theSubject)), answers(theAnswers)
    {
        avahi.queries.push_back(this);
    }
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;
    ~Query() override { std::erase(avahi.queries, this); }

    FakeAvahi& avahi;
    std::string subject;
    AvahiAnswers answers;
};

class FakeAvahi::Group final : public AvahiGroup {
public:
    Group(FakeAvahi& theAvahi, AvahiGroupWatcher& theWatcher) : avahi(theAvahi), watcher(theWatcher)
    {
        avahi.groups.push_back(this);
        ++avahi.groupsMade;
        avahi.mostGroups = std::max(avahi.mostGroups, avahi.groups.size());
    }
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;
    ~Group() override { std::erase(avahi.groups, this); }

    int addRecord(const RawRecord& record, Probing probing) override
    {
        constexpr std::uint16_t kLocation = 33;
        isProbed = probing == Probing::Needed;
        const char* rest = record.name.c_str();
        std::array<char, AVAHI_LABEL_MAX> label{};
        if (record.type == kLocation)
            content = avahi_unescape_label(&rest, label.data(), label.size());
        return avahi.addRecordError;
    }
    int addAddress(const std::string& hostName, const HostAddress& address,
                   Probing probing) override
    {
        isProbed = probing == Probing::Needed;
        content = hostName + " " + std::to_string(address.interfaceIndex);
        ++addressCount;
        return AVAHI_OK;
    }
    int commit() override
    {
        watcher.onGroupState(AVAHI_ENTRY_GROUP_REGISTERING);
        return AVAHI_OK;
    }

    void become(AvahiEntryGroupState newState) const
    {
        state = newState;
        watcher.onGroupState(newState);
    }

    FakeAvahi& avahi;
    AvahiGroupWatcher& watcher;
    std::string content;
    int addressCount = 0;
    bool isProbed = false;
    mutable AvahiEntryGroupState state = AVAHI_ENTRY_GROUP_UNCOMMITED;
};

std::unique_ptr<AvahiObject> FakeAvahi::browse(const std::string& type, AvahiAnswers answers)
{
    return error != AVAHI_OK ? nullptr : std::make_unique<Query>(*this, type, answers);
}

std::unique_ptr<AvahiObject> FakeAvahi::lookUp(const std::string& name, Record /*record*/,
                                               AvahiAnswers answers)
{
    return error != AVAHI_OK ? nullptr : std::make_unique<Query>(*this, name, answers);
}

std::unique_ptr<AvahiGroup> FakeAvahi::makeGroup(AvahiGroupWatcher& watcher)
{
    return error != AVAHI_OK || makesNoGroups ? nullptr : std::make_unique<Group>(*this, watcher);
}

FakeAvahi::Group* FakeAvahi::group(const std::string& content)
{
    const auto found =
        std::ranges::find_if(groups, [&](const Group* g) { return g->content == content; });
    return found == groups.end() ? nullptr : *found;
}

class AvahiSessionTest : public testing::Test {
protected:
    static RegisterRequest registration(RequestId id, const std::string& name,
                                        const std::vector<int>& interfaces = {2, 3})
    {
        RegisterRequest request{.id = id,
                                .name = name,
                                .type = "_smb._tcp",
                                .port = 4445,
                                .hostName = "host.local",
                                .addresses = {}};
        for (const int interfaceIndex : interfaces)
            request.addresses.push_back({interfaceIndex, {}});
        return request;
    }

    void establishAll()
    {
        for (const FakeAvahi::Group* group : avahi.groups) {
            if (group->state != AVAHI_ENTRY_GROUP_ESTABLISHED)
                group->become(AVAHI_ENTRY_GROUP_ESTABLISHED);
        }
    }

    /// Publishes and establishes all waiting registrations, batch by batch.
    void establishInTurns()
    {
        for (std::size_t before = 0; before != avahi.groupsMade;) {
            before = avahi.groupsMade;
            establishAll();
            session.tidy(kStart);
        }
    }

    std::size_t registered() const
    {
        return static_cast<std::size_t>(std::ranges::count_if(
            events, [](const Event& event) { return std::holds_alternative<Registered>(event); }));
    }

    static constexpr std::size_t kAtOnce = kRegistrationsAtOnce;

    std::vector<Event> events;
    FakeAvahi avahi;
    AvahiSession session{avahi, [this](Event event) { events.push_back(std::move(event)); }};
};

TEST_F(AvahiSessionTest, registersOnceAllGroupsAreEstablished)
{
    session.handle(registration(1, "Name"), kStart);
    ASSERT_EQ(avahi.groups.size(), 3U);
    avahi.group("Name")->become(AVAHI_ENTRY_GROUP_ESTABLISHED);
    avahi.group("host.local 2")->become(AVAHI_ENTRY_GROUP_ESTABLISHED);
    session.tidy(kStart);
    EXPECT_THAT(events, IsEmpty());
    avahi.group("host.local 3")->become(AVAHI_ENTRY_GROUP_ESTABLISHED);
    session.tidy(kStart);
    session.tidy(kStart);
    EXPECT_THAT(events, ElementsAre(Event(Registered{1})));
    EXPECT_FALSE(session.nextDeadline());
}

TEST_F(AvahiSessionTest, freesEverythingOnACollision)
{
    session.handle(registration(1, "Name"), kStart);
    avahi.group("host.local 3")->become(AVAHI_ENTRY_GROUP_COLLISION);
    session.tidy(kStart);
    EXPECT_THAT(events, ElementsAre(Event(Collision{1, Collision::Of::Host})));
    EXPECT_THAT(avahi.groups, IsEmpty());

    session.handle(registration(2, "Name"), kStart);
    establishAll();
    session.tidy(kStart);
    avahi.group("Name")->become(AVAHI_ENTRY_GROUP_COLLISION);
    session.tidy(kStart);
    EXPECT_EQ(events.back(), Event(Collision{2, Collision::Of::Service}));
    EXPECT_THAT(avahi.groups, IsEmpty());
}

TEST_F(AvahiSessionTest, refusesATakenNameWithoutPublishingItsHost)
{
    avahi.addRecordError = AVAHI_ERR_COLLISION;
    session.handle(registration(1, "Name"), kStart);
    EXPECT_EQ(avahi.groupsMade, 1U);
    session.tidy(kStart);
    EXPECT_THAT(events, ElementsAre(Event(Collision{1, Collision::Of::Service})));
}

TEST_F(AvahiSessionTest, reportsWhatAvahiRefuses)
{
    avahi.error = AVAHI_ERR_TOO_MANY_OBJECTS;
    session.handle(registration(1, "Name"), kStart);
    session.tidy(kStart);
    EXPECT_THAT(events, ElementsAre(Event(Failed{1, DnsSdError::TooManyEntries})));
    avahi.error = AVAHI_ERR_NOT_PERMITTED;
    session.handle(BrowseRequest{2, "_smb._tcp"}, kStart);
    EXPECT_EQ(events.back(), Event(Failed{2, DnsSdError::NotPermitted}));
}

TEST_F(AvahiSessionTest, saysNothingWhenAvahiCannotBeReached)
{
    session.handle(registration(1, "Name"), kStart);
    avahi.error = AVAHI_ERR_DISCONNECTED;
    session.handle(registration(2, "Other"), kStart);
    session.tidy(kStart);
    EXPECT_TRUE(session.isBroken());
    avahi.error = AVAHI_ERR_NOT_FOUND;
    session.handle(BrowseRequest{3, "_smb._tcp"}, kStart);
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(AvahiSessionTest, saysNothingMoreOnceAvahiCannotBeReached)
{
    for (const RequestId id : {1U, 2U})
        session.handle(BrowseRequest{id, "_smb._tcp"}, kStart);
    ASSERT_EQ(avahi.queries.size(), 2U);
    avahi.queries[0]->answers.fail(AVAHI_ERR_BAD_STATE);
    avahi.queries[1]->answers.fail(AVAHI_ERR_NOT_FOUND);
    session.tidy(kStart);
    EXPECT_TRUE(session.isBroken());
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(AvahiSessionTest, freesEverythingOfAGroupThatFails)
{
    session.handle(registration(1, "Name"), kStart);
    avahi.group("host.local 3")->become(AVAHI_ENTRY_GROUP_FAILURE);
    session.tidy(kStart);
    EXPECT_THAT(events, ElementsAre(Event(Failed{1, DnsSdError::Internal})));
    EXPECT_THAT(avahi.groups, IsEmpty());
}

TEST_F(AvahiSessionTest, failsWhereAvahiMakesNoGroupAndDoesNotSayWhy)
{
    avahi.makesNoGroups = true;
    session.handle(registration(1, "Name"), kStart);
    session.tidy(kStart);
    EXPECT_THAT(events, ElementsAre(Event(Failed{1, DnsSdError::Internal})));
}

TEST_F(AvahiSessionTest, touchesOnlyTheInterfacesWhoseAddressesChange)
{
    session.handle(registration(1, "Name"), kStart);
    establishAll();
    session.tidy(kStart);
    const auto* service = avahi.group("Name");
    const auto* kept = avahi.group("host.local 3");

    Address other;
    other.bytes = {10, 0, 0, 1};
    session.handle(UpdateAddressesRequest{1, {{3, {}}, {4, other}}}, kStart);
    EXPECT_EQ(avahi.group("Name"), service);
    EXPECT_EQ(avahi.group("host.local 3"), kept);
    EXPECT_EQ(avahi.group("host.local 2"), nullptr);
    EXPECT_NE(avahi.group("host.local 4"), nullptr);
    EXPECT_EQ(avahi.groupsMade, 4U);

    establishAll();
    session.tidy(kStart);
    EXPECT_THAT(events, ElementsAre(Event(Registered{1})));
}

TEST_F(AvahiSessionTest, publishesAnAddressThatIsGivenTwiceOnce)
{
    session.handle(registration(1, "Name", {2, 2}), kStart);
    EXPECT_EQ(avahi.group("host.local 2")->addressCount, 1);
}

TEST_F(AvahiSessionTest, publishesAnewWhatRegistersForTooLong)
{
    session.handle(registration(1, "Name"), kStart);
    ASSERT_TRUE(session.nextDeadline());
    EXPECT_EQ(*session.nextDeadline(), kStart + 3s);
    session.tidy(kStart + 2999ms);
    EXPECT_EQ(avahi.groupsMade, 3U);
    session.tidy(kStart + 3s);
    EXPECT_EQ(avahi.groupsMade, 6U);
    EXPECT_EQ(avahi.groups.size(), 3U);
    EXPECT_EQ(avahi.mostGroups, 3U) << "all names were free before they were taken again";

    // The timeout doubles.
    EXPECT_EQ(*session.nextDeadline(), kStart + 9s);
    establishAll();
    session.tidy(kStart + 4s);
    EXPECT_THAT(events, ElementsAre(Event(Registered{1})));
    EXPECT_FALSE(session.nextDeadline());
}

TEST_F(AvahiSessionTest, givesEachTryTwiceTheTimeUpToAMinute)
{
    session.handle(registration(1, "Name"), kStart);
    auto now = kStart;
    for (const auto patience : {3s, 6s, 12s, 24s, 48s, 60s, 60s}) {
        EXPECT_EQ(*session.nextDeadline() - now, patience);
        now += patience;
        session.tidy(now);
    }
}

TEST_F(AvahiSessionTest, publishesNamesThatAreItsOwnWithoutProbing)
{
    RegisterRequest request = registration(1, "A.b", {2});
    request.isOwnName = true;
    session.handle(request, kStart);
    EXPECT_FALSE(avahi.group("A.b")->isProbed);
    EXPECT_FALSE(avahi.group("host.local 2")->isProbed);

    // Nothing came of it: from now on as any other.
    session.tidy(kStart + 3s);
    EXPECT_TRUE(avahi.group("A.b")->isProbed);
    EXPECT_TRUE(avahi.group("host.local 2")->isProbed);
}

TEST_F(AvahiSessionTest, probesForNewAddressesOfANameThatIsItsOwn)
{
    RegisterRequest request = registration(1, "Name", {2});
    request.isOwnName = true;
    session.handle(request, kStart);
    establishAll();
    session.tidy(kStart);
    session.handle(UpdateAddressesRequest{1, {{2, {}}, {3, {}}}}, kStart);
    EXPECT_TRUE(avahi.group("host.local 3")->isProbed);
}

TEST_F(AvahiSessionTest, refusesTextThatIsNoText)
{
    const std::string zero("lo\0cal", 6);
    RequestId id = 0;
    for (const std::string& bad : {zero, std::string("\xff")}) {
        session.handle(LocationRequest{++id, {"Name", "_smb._tcp", bad}}, kStart);
        EXPECT_EQ(events.back(), Event(Failed{id, DnsSdError::InvalidName}));
        session.handle(LocationRequest{++id, {"Name", bad, "local"}}, kStart);
        EXPECT_EQ(events.back(), Event(Failed{id, DnsSdError::InvalidName}));
        session.handle(LocationRequest{++id, {bad, "_smb._tcp", "local"}}, kStart);
        EXPECT_EQ(events.back(), Event(Failed{id, DnsSdError::InvalidName}));
        session.handle(BrowseRequest{++id, bad}, kStart);
        EXPECT_EQ(events.back(), Event(Failed{id, DnsSdError::InvalidType}));
        session.handle(AddressRequest{++id, bad, Family::IPv4}, kStart);
        EXPECT_TRUE(std::holds_alternative<Failed>(events.back()));
        RegisterRequest request = registration(++id, "Name");
        request.type = bad;
        session.handle(request, kStart);
        EXPECT_EQ(events.back(), Event(Failed{id, DnsSdError::InvalidType}));
        request = registration(++id, "Name");
        request.hostName = bad;
        session.handle(request, kStart);
        EXPECT_EQ(events.back(), Event(Failed{id, DnsSdError::InvalidName}));
        session.handle(registration(++id, bad), kStart);
        EXPECT_EQ(events.back(), Event(Failed{id, DnsSdError::InvalidName}));
    }
    EXPECT_EQ(events.size(), id);
    EXPECT_THAT(avahi.queries, IsEmpty());
    EXPECT_THAT(avahi.groups, IsEmpty());
}

TEST_F(AvahiSessionTest, publishesSoManyAtOnceAndTheOthersInTheirTurn)
{
    for (RequestId id = 1; id <= 3 * kAtOnce; ++id)
        session.handle(registration(id, "Name " + std::to_string(id), {2}), kStart);
    EXPECT_EQ(avahi.groupsMade, 2 * kAtOnce);
    session.tidy(kStart);
    EXPECT_EQ(avahi.groupsMade, 2 * kAtOnce);

    avahi.group("Name 1")->become(AVAHI_ENTRY_GROUP_COLLISION);
    session.tidy(kStart);
    EXPECT_TRUE(avahi.group("Name " + std::to_string(kAtOnce + 1)));
    EXPECT_EQ(avahi.groupsMade, 2 * kAtOnce + 2);
    session.handle(StopRequest{2}, kStart);
    session.tidy(kStart);
    EXPECT_TRUE(avahi.group("Name " + std::to_string(kAtOnce + 2)));
    session.handle(StopRequest{static_cast<RequestId>(3 * kAtOnce)}, kStart);

    establishInTurns();
    EXPECT_EQ(registered(), 3 * kAtOnce - 3);
    EXPECT_FALSE(avahi.group("Name " + std::to_string(3 * kAtOnce)));
    EXPECT_FALSE(session.nextDeadline());
}

TEST_F(AvahiSessionTest, whatIsRefusedAtOnceMakesRoomAtOnce)
{
    avahi.addRecordError = AVAHI_ERR_COLLISION;
    for (RequestId id = 1; id <= 3 * kAtOnce; ++id)
        session.handle(registration(id, "Name"), kStart);
    session.tidy(kStart);
    EXPECT_EQ(events.size(), 3 * kAtOnce);
    EXPECT_FALSE(session.nextDeadline());
}

TEST_F(AvahiSessionTest, whatRegistersForTooLongGoesBehindTheOthers)
{
    for (RequestId id = 1; id <= kAtOnce + 1; ++id)
        session.handle(registration(id, "Name " + std::to_string(id), {2}), kStart);
    const std::string last = "Name " + std::to_string(kAtOnce + 1);
    ASSERT_FALSE(avahi.group(last));
    session.tidy(kStart + 3s);
    EXPECT_TRUE(avahi.group(last));
    EXPECT_EQ(avahi.groupsMade, 4 * kAtOnce) << "all but one are registered again";
    EXPECT_EQ(*session.nextDeadline(), kStart + 6s)
        << "the last registration has a timeout of its own";
}

TEST_F(AvahiSessionTest, newAddressesAreProbedForInTurns)
{
    for (RequestId id = 1; id <= 2 * kAtOnce; ++id)
        session.handle(registration(id, "Name " + std::to_string(id), {2}), kStart);
    establishInTurns();
    const std::size_t before = avahi.groupsMade;
    for (RequestId id = 1; id <= 2 * kAtOnce; ++id)
        session.handle(UpdateAddressesRequest{id, {{2, {}}, {4, {}}}}, kStart);
    session.tidy(kStart);
    EXPECT_EQ(avahi.groupsMade, before + kAtOnce);
    establishInTurns();
    EXPECT_FALSE(session.nextDeadline());
    EXPECT_EQ(avahi.groupsMade, before + 2 * kAtOnce);
    EXPECT_EQ(registered(), 2 * kAtOnce) << "said once";
}

TEST_F(AvahiSessionTest, whatAvahiBeginsAnewByItselfIsGivenTime)
{
    session.handle(registration(1, "Name"), kStart);
    establishInTurns();
    avahi.group("Name")->become(AVAHI_ENTRY_GROUP_REGISTERING);
    session.tidy(kStart + 10s);
    EXPECT_EQ(avahi.groupsMade, 3U);
    EXPECT_EQ(*session.nextDeadline(), kStart + 13s);
    session.tidy(kStart + 13s);
    EXPECT_EQ(avahi.groupsMade, 6U);
}

TEST_F(AvahiSessionTest, endsWhatIsStoppedAndIgnoresTheUnknown)
{
    session.handle(BrowseRequest{1, "_smb._tcp"}, kStart);
    session.handle(registration(2, "Name"), kStart);
    session.handle(StopRequest{1}, kStart);
    session.handle(StopRequest{2}, kStart);
    session.handle(StopRequest{3}, kStart);
    session.handle(UpdateAddressesRequest{2, {}}, kStart);
    EXPECT_THAT(avahi.queries, IsEmpty());
    EXPECT_THAT(avahi.groups, IsEmpty());
    session.tidy(kStart);
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(AvahiSessionTest, replacesWhatHasTheSameId)
{
    session.handle(BrowseRequest{1, "_smb._tcp"}, kStart);
    session.handle(BrowseRequest{1, "_http._tcp"}, kStart);
    ASSERT_EQ(avahi.queries.size(), 1U);
    EXPECT_EQ(avahi.queries.front()->subject, "_http._tcp");
}

TEST_F(AvahiSessionTest, settlesOnceAndEndsOnFailure)
{
    session.handle(LocationRequest{1, {"A.b", "_smb._tcp", ""}}, kStart);
    ASSERT_EQ(avahi.queries.size(), 1U);
    EXPECT_EQ(avahi.queries.front()->subject, "A\\.b._smb._tcp.local");
    AvahiAnswers answers = avahi.queries.front()->answers;
    answers.settle();
    answers.settle();
    answers.fail(AVAHI_ERR_NOT_FOUND);
    EXPECT_EQ(avahi.queries.size(), 1U); // not destroyed within its own callback
    session.tidy(kStart);
    EXPECT_THAT(avahi.queries, IsEmpty());
    EXPECT_THAT(events, ElementsAre(Event(Settled{1}), Event(Failed{1, DnsSdError::NotFound})));
}

} // namespace

} // namespace quillbox::dnssd
