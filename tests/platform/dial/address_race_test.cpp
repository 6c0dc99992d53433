#include "platform/dial/address_race.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/netlink/network_namespace.h"
#include "tests/platform/tcp/tcp_backstage.h"

#include <chrono>
#include <condition_variable>
#include <fstream>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

Candidate typed(const SocketAddress& address)
{
    return {.address = address, .interfaces = {}};
}

/// A link-local address without a scope: connect() fails before a packet is sent.
SocketAddress addressWithoutScope()
{
    return ipv6Address("fe80::1", 0, 4445);
}

/// Records how the race ended each time. Thread-safe.
class RaceLog final {
public:
    void note(const AddressRace::Outcome& outcome)
    {
        const std::lock_guard lock(mutex_);
        outcomes_.push_back(outcome);
        changed_.notify_all();
    }

    bool waitFor(std::size_t count)
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return outcomes_.size() >= count; });
    }

    std::size_t count()
    {
        const std::lock_guard lock(mutex_);
        return outcomes_.size();
    }

    AddressRace::Outcome at(std::size_t index)
    {
        const std::lock_guard lock(mutex_);
        return outcomes_.at(index);
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<AddressRace::Outcome> outcomes_;
};

} // namespace

class AddressRaceTest : public Backstage {
protected:
    ~AddressRaceTest() override
    {
        onQueue([this] { race->stop(); });
        pool.shutdown();
    }

    void setCandidates(const std::vector<Candidate>& candidates)
    {
        onQueue([&] { race->setCandidates(candidates); });
    }

    /// Waits until that many sockets are open; false if it takes longer.
    bool waitForSockets(std::size_t count, std::chrono::milliseconds atMost)
    {
        const auto end = std::chrono::steady_clock::now() + atMost;
        while (context->sockets->openCount() < count && std::chrono::steady_clock::now() < end)
            std::this_thread::yield();
        return context->sockets->openCount() >= count;
    }

    std::promise<void> won; ///< at most once
    const SocketAddress client = ipv4Address("192.0.2.9", 50000);
    RaceLog lost;
    const std::shared_ptr<AddressRace> race = std::make_shared<AddressRace>(
        context, LoopQueue::from(queue), client,
        AddressRace::Handlers{
            .won = [this](const std::unique_ptr<FdWatcher>&) { won.set_value(); },
            .lost = [this](const AddressRace::Outcome& outcome) { lost.note(outcome); }});
};

TEST_F(AddressRaceTest, givesNoPreferenceAnyMoreToAnAddressThatFailed)
{
    const auto address = PeerListener().address();
    context->provenAddresses.add(address);
    setCandidates({typed(address)});
    ASSERT_TRUE(lost.waitFor(1));
    EXPECT_EQ(lost.at(0).error, std::errc::connection_refused);
    EXPECT_FALSE(context->provenAddresses.contains(address));
}

TEST_F(AddressRaceTest, dialsNothingWhenNoSocketIsLeft)
{
    const PeerListener phone;
    std::vector<SocketLedger::Place> places;
    while (auto place = context->sockets->open())
        places.push_back(std::move(place));
    setCandidates({typed(phone.address())});
    ASSERT_TRUE(lost.waitFor(1));
    EXPECT_EQ(lost.at(0).error, std::errc::too_many_files_open);
    EXPECT_TRUE(lost.at(0).isFinal);
    EXPECT_FALSE(phone.isConnectedTo(0ms));
}

TEST_F(AddressRaceTest, tellsTheErrorOfAnAddressOnlyWhileThereAreAddresses)
{
    setCandidates({typed(addressWithoutScope())});
    ASSERT_TRUE(lost.waitFor(1));
    EXPECT_TRUE(lost.at(0).error);
    EXPECT_FALSE(lost.at(0).isFinal);
    setCandidates({});
    ASSERT_TRUE(lost.waitFor(2));
    EXPECT_FALSE(lost.at(1).error) << lost.at(1).error.message();
}

TEST_F(AddressRaceTest, forgetsAnAddressThatWentAwayDuringTheAttemptWhenThatFails)
{
    auto silent = std::make_unique<SilentAddress>("127.0.0.2");
    setCandidates({typed(silent->address())});
    settle();
    setCandidates({});
    settle();
    EXPECT_EQ(context->sockets->openCount(), 1U) << "the attempt goes on";
    EXPECT_EQ(lost.count(), 0U);
    // The attempt is refused once the kernel sends its request again.
    silent.reset();
    ASSERT_TRUE(lost.waitFor(1));
    EXPECT_FALSE(lost.at(0).error) << lost.at(0).error.message();
    EXPECT_FALSE(lost.at(0).isFinal);
}

TEST_F(AddressRaceTest, givesNoPreferenceAnyMoreToAnAddressThatWasSlowerThanTheWinner)
{
    const SilentAddress silent("127.0.0.2");
    const PeerListener phone;
    context->provenAddresses.add(silent.address());
    setCandidates({typed(silent.address()), typed(phone.address())});
    take(won.get_future());
    EXPECT_FALSE(context->provenAddresses.contains(silent.address()));
    EXPECT_TRUE(context->provenAddresses.contains(phone.address()));
}

TEST_F(AddressRaceTest, triesAnAddressOnceHoweverOftenItIsAnnounced)
{
    const SilentAddress silent("127.0.0.2");
    for (int count = 0; count < 3; ++count) {
        setCandidates({typed(silent.address())});
        settle();
    }
    EXPECT_FALSE(waitForSockets(2, AddressRace::kStagger * 2));
}

TEST_F(AddressRaceTest, triesSoManyAddressesAtATime)
{
    std::vector<std::unique_ptr<SilentAddress>> silent;
    std::vector<Candidate> candidates;
    for (std::size_t count = 0; count < AddressRace::kMostAtOnce + 1; ++count) {
        silent.push_back(std::make_unique<SilentAddress>("127.0.0." + std::to_string(100 + count)));
        candidates.push_back(typed(silent.back()->address()));
    }
    setCandidates(candidates);
    EXPECT_TRUE(waitForSockets(AddressRace::kMostAtOnce, kPatience));
    EXPECT_FALSE(waitForSockets(AddressRace::kMostAtOnce + 1, AddressRace::kStagger * 3));
}

TEST_F(AddressRaceTest, triesOneAddressAtATimeWhereHalfOfTheSocketsAreOpen)
{
    const SilentAddress first("127.0.0.2");
    const SilentAddress second("127.0.0.3");
    std::vector<SocketLedger::Place> places;
    while (context->sockets->hasPlenty())
        places.push_back(context->sockets->open());
    const auto before = context->sockets->openCount();
    setCandidates({typed(first.address()), typed(second.address())});
    EXPECT_TRUE(waitForSockets(before + 1, kPatience));
    EXPECT_FALSE(waitForSockets(before + 2, AddressRace::kStagger * 3));
}

TEST_F(AddressRaceTest, goesOnWithAnAttemptWhenTheRecordArrivesOnAnotherInterface)
{
    const SilentAddress silent("127.0.0.2");
    setCandidates({{.address = silent.address(), .interfaces = {1}}});
    settle();
    setCandidates({{.address = silent.address(), .interfaces = {1, 2}}});
    EXPECT_FALSE(waitForSockets(2, AddressRace::kStagger * 2));
}

TEST_F(AddressRaceTest, retriesAnAddressWhoseRecordArrivesOnAnotherInterface)
{
    const auto address = PeerListener().address();
    setCandidates({{.address = address, .interfaces = {1}}});
    ASSERT_TRUE(lost.waitFor(1));
    // No longer proven once it is dialled.
    context->provenAddresses.add(address);
    setCandidates({{.address = address, .interfaces = {1}}});
    ASSERT_TRUE(lost.waitFor(2));
    EXPECT_TRUE(context->provenAddresses.contains(address));
    setCandidates({{.address = address, .interfaces = {1, 2}}});
    ASSERT_TRUE(lost.waitFor(3));
    EXPECT_FALSE(context->provenAddresses.contains(address));
}

TEST_F(AddressRaceTest, refusesAllAddressesOfAHostThatHasTheClientsToo)
{
    const auto other = ipv6Address("2001:db8::9", 0, 4445);
    // Its error if it were dialled is another one.
    monitor.setRoutes(2, other, {OutgoingRoute::Unknown});
    setCandidates({{.address = other, .interfaces = {2}},
                   {.address = ipv4Address("192.0.2.9", 4445), .interfaces = {2}}});
    ASSERT_TRUE(lost.waitFor(1));
    EXPECT_EQ(lost.at(0).error, std::errc::connection_refused);
    EXPECT_TRUE(lost.at(0).isFinal);
}

TEST_F(AddressRaceTest, refusesNoOtherAddressForOneThatIsNeverDialled)
{
    const auto own = ipv4Address("192.0.2.9", 4445);
    const auto other = ipv6Address("2001:db8::9", 0, 4445);
    monitor.setRoutes(2, own, {OutgoingRoute::None});
    monitor.setRoutes(2, other, {OutgoingRoute::Unknown});
    setCandidates({{.address = other, .interfaces = {2}}, {.address = own, .interfaces = {2}}});
    ASSERT_TRUE(lost.waitFor(1));
    EXPECT_EQ(lost.at(0).error, std::errc::no_buffer_space);
}

TEST_F(AddressRaceTest, dialsAPhoneOnThisComputerForAClientThatIsKnownOnTheNetwork)
{
    const PeerListener phone;
    setCandidates({{.address = ipv4Address("192.0.2.9", 4445), .interfaces = {2}},
                   {.address = phone.address(), .interfaces = {1}}});
    take(won.get_future());
}

TEST_F(AddressRaceTest, refusesNoAddressForOneThatThisComputerAnnounced)
{
    const auto onLoopback = PeerListener("127.0.0.9").address();
    const auto other = ipv6Address("2001:db8::9", 0, 4445);
    monitor.setRoutes(2, other, {OutgoingRoute::Unknown});
    const auto local = std::make_shared<AddressRace>(
        context, LoopQueue::from(queue), onLoopback,
        AddressRace::Handlers{.won = [](const std::unique_ptr<FdWatcher>&) { FAIL(); },
                              .lost = [this](const auto& outcome) { lost.note(outcome); }});
    onQueue([&] {
        local->setCandidates(
            {{.address = other, .interfaces = {2}}, {.address = onLoopback, .interfaces = {1}}});
    });
    ASSERT_TRUE(lost.waitFor(1));
    EXPECT_EQ(lost.at(0).error, std::errc::no_buffer_space) << "that of its own route";
    onQueue([&] { local->stop(); });
}

TEST_F(AddressRaceTest, tellsTheFirstErrorThatIsFinal)
{
    const auto unknown = ipv4Address("198.51.100.1", 4445);
    const auto closed = PeerListener().address();
    monitor.setRoutes(2, unknown, {OutgoingRoute::Unknown});
    setCandidates(
        {typed(addressWithoutScope()), {.address = unknown, .interfaces = {2}}, typed(closed)});
    ASSERT_TRUE(lost.waitFor(1));
    EXPECT_EQ(lost.at(0).error, std::errc::no_buffer_space);
    EXPECT_TRUE(lost.at(0).isFinal);
}

TEST(AddressRace, countsAConnectionToItselfAsRefused)
{
    inNetworkNamespace([] {
        // The only port that is left for the connection is the one that it is opened to.
        setLoopbackUp(true);
        std::ofstream ports("/proc/sys/net/ipv4/ip_local_port_range");
        ports << "4445 4445\n" << std::flush;
        if (!ports)
            GTEST_SKIP() << "no permission to set the range of ports";
        Harness harness;
        auto subject = harness.dial("127.0.0.1", 4445);
        EXPECT_TRUE(subject.log->waitFor(Connection::State::Failed));
        EXPECT_EQ(subject.log->errorOf(Connection::State::Failed), std::errc::connection_refused);
        EXPECT_EQ(subject.log->count(Connection::State::Ready), 0U);
        harness.pool.shutdown();
    });
}

} // namespace quillbox
