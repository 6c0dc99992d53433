#include "platform/tcp/address_race.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/netlink/network_namespace.h"
#include "tests/platform/tcp/tcp_backstage.h"

#include <condition_variable>
#include <fstream>
#include <memory>
#include <mutex>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

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

    RaceLog lost;
    const std::shared_ptr<AddressRace> race = std::make_shared<AddressRace>(
        context, strandOf(*queue), SocketAddress(),
        AddressRace::Handlers{
            .won = [](const std::unique_ptr<Socket>&) { ADD_FAILURE() << "connected"; },
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
    // The attempt is refused once the kernel sends its request again.
    silent.reset();
    ASSERT_TRUE(lost.waitFor(1));
    EXPECT_FALSE(lost.at(0).error) << lost.at(0).error.message();
    EXPECT_FALSE(lost.at(0).isFinal);
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
