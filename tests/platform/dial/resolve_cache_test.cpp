#include "platform/dial/resolve_cache.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/tcp/tcp_harness.h"

#include <condition_variable>
#include <future>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::chrono_literals;

const ServiceEndpoint kOther{.name = "Other", .type = "_quillbox._tcp", .domain = "local"};

DnsSd::FoundAddress foundAt(const std::string& text)
{
    return {.address = ipv4Address(text, 4445), .interfaceIndex = 2};
}

DnsSd::ResolveUpdate unsettled(DnsSd::ResolveUpdate update)
{
    update.isSettledIPv4 = update.isSettledIPv6 = false;
    return update;
}

/// Records the updates that one reader receives. Thread-safe.
class Told final {
public:
    void note(const DnsSd::ResolveUpdate& update)
    {
        const std::lock_guard lock(mutex_);
        updates_.push_back(update);
        changed_.notify_all();
    }

    bool waitFor(std::size_t count, std::chrono::milliseconds limit = kPatience)
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return updates_.size() >= count; });
    }

    DnsSd::ResolveUpdate at(std::size_t index)
    {
        const std::lock_guard lock(mutex_);
        return updates_.at(index);
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<DnsSd::ResolveUpdate> updates_;
};

} // namespace

class ResolveCacheTest : public testing::Test {
protected:
    ResolveCacheTest() { open(ResolveCache::kFreshTime, ResolveCache::kKeepTime); }

    // The handlers refer to `first` and `second`, so none may run after this.
    ~ResolveCacheTest() override { pool.shutdown(); }

    void open(std::chrono::milliseconds freshTime, std::chrono::milliseconds keepTime)
    {
        cache = std::make_shared<ResolveCache>(
            dnsSd, pool.makeQueue("cache", QualityOfService::UserInitiated), freshTime, keepTime);
    }

    std::shared_ptr<void> read(Told& told, const ServiceEndpoint& service = kPhone)
    {
        return cache->resolve(service, queue, [this, &told](const DnsSd::ResolveUpdate& update) {
            EXPECT_TRUE(queue->isCurrent());
            told.note(update);
        });
    }

    /// Lets time pass.
    void wait(std::chrono::milliseconds pause)
    {
        std::promise<void> over;
        queue->asyncAfter(pause, [&over] { over.set_value(); });
        over.get_future().wait();
    }

    DispatchPool pool;
    FakeDnsSd dnsSd;
    const std::shared_ptr<DispatchQueue> queue =
        pool.makeQueue("readers", QualityOfService::UserInitiated);
    std::shared_ptr<ResolveCache> cache;
    Told first;
    Told second;
};

TEST_F(ResolveCacheTest, asksOnceForAllThatComeTogether)
{
    const auto one = read(first);
    const auto two = read(second);
    EXPECT_EQ(dnsSd.count(), 1U);
    const auto update = found({foundAt("192.0.2.1")});
    dnsSd.resolutions().at(0).tell(update);
    ASSERT_TRUE(first.waitFor(1));
    ASSERT_TRUE(second.waitFor(1));
    EXPECT_EQ(first.at(0), update);
    EXPECT_EQ(second.at(0), update);
}

TEST_F(ResolveCacheTest, tellsLaterReadersAtOnceWhatItHeardLast)
{
    auto one = read(first);
    dnsSd.resolutions().at(0).tell(found({foundAt("192.0.2.1")}));
    ASSERT_TRUE(first.waitFor(1));
    const auto update = found({foundAt("192.0.2.2")});
    dnsSd.resolutions().at(0).tell(update);
    ASSERT_TRUE(first.waitFor(2));
    one.reset();
    const auto two = read(second);
    ASSERT_TRUE(second.waitFor(1));
    EXPECT_EQ(second.at(0), update);
    EXPECT_EQ(dnsSd.count(), 1U);
}

TEST_F(ResolveCacheTest, asksAnewWhenTheLastQuestionIsNotFreshAndTellsMeanwhileWhatItKnows)
{
    open(0ms, ResolveCache::kKeepTime);
    const auto one = read(first);
    auto before = found({foundAt("192.0.2.1")});
    before.hosts = {{"phone.local", 4445}};
    dnsSd.resolutions().at(0).tell(before);
    ASSERT_TRUE(first.waitFor(1));
    const auto two = read(second);
    EXPECT_EQ(dnsSd.count(), 2U);
    EXPECT_EQ(active(dnsSd.resolutions()).size(), 1U);
    ASSERT_TRUE(second.waitFor(1));
    EXPECT_EQ(second.at(0), unsettled(before)) << "cached, hence not settled";
    const auto after = found({foundAt("192.0.2.2")});
    dnsSd.resolutions().at(1).tell(after);
    ASSERT_TRUE(second.waitFor(2));
    EXPECT_EQ(second.at(1), after);
    ASSERT_TRUE(first.waitFor(2));
    EXPECT_EQ(first.at(1), after);
}

TEST_F(ResolveCacheTest, keepsWhatItKnowsUntilTheNewQuestionIsAnswered)
{
    open(0ms, ResolveCache::kKeepTime);
    const auto one = read(first);
    dnsSd.resolutions().at(0).tell(found({foundAt("192.0.2.1")}));
    ASSERT_TRUE(first.waitFor(1));
    const auto two = read(second);
    ASSERT_TRUE(second.waitFor(1));
    dnsSd.resolutions().at(1).tell(unsettled(found({})));
    EXPECT_FALSE(second.waitFor(2, kWatch));
    dnsSd.resolutions().at(1).tell(found({}));
    ASSERT_TRUE(second.waitFor(2));
    EXPECT_EQ(second.at(1), found({})) << "nobody answered: it is gone";
    Told third;
    const auto three = read(third);
    EXPECT_FALSE(third.waitFor(1, kWatch)) << "and its address is not told any more";
}

TEST_F(ResolveCacheTest, ignoresALateAnswerToAnEarlierQuestion)
{
    open(0ms, ResolveCache::kKeepTime);
    const auto one = read(first);
    dnsSd.resolutions().at(0).tell(found({foundAt("192.0.2.1")}));
    ASSERT_TRUE(first.waitFor(1));
    const auto two = read(second);
    ASSERT_TRUE(second.waitFor(1));
    // An update that was under way when the first query ended.
    dnsSd.resolutions().at(0).tell(found({foundAt("192.0.2.9")}));
    const auto after = found({foundAt("192.0.2.2")});
    dnsSd.resolutions().at(1).tell(after);
    ASSERT_TRUE(second.waitFor(2));
    EXPECT_EQ(second.at(1), after);
}

TEST_F(ResolveCacheTest, letsTheLastAddressesStandWhileNoEngineAnswers)
{
    open(0ms, ResolveCache::kKeepTime);
    const auto one = read(first);
    auto before = found({foundAt("192.0.2.1")});
    before.hosts = {{"phone.local", 4445}};
    dnsSd.resolutions().at(0).tell(before);
    ASSERT_TRUE(first.waitFor(1));
    const auto two = read(second);
    auto failure = found({});
    failure.error = std::make_error_code(std::errc::host_unreachable);
    dnsSd.resolutions().at(1).tell(failure);
    ASSERT_TRUE(second.waitFor(2));
    EXPECT_EQ(second.at(1).error, failure.error);
    EXPECT_EQ(second.at(1).addresses, before.addresses);
    EXPECT_EQ(second.at(1).hosts, before.hosts);
}

TEST_F(ResolveCacheTest, tellsThatNoEngineAnswersWhenNothingIsKnown)
{
    const auto one = read(first);
    auto failure = unsettled(found({}));
    failure.error = std::make_error_code(std::errc::host_unreachable);
    dnsSd.resolutions().at(0).tell(failure);
    ASSERT_TRUE(first.waitFor(1));
    EXPECT_EQ(first.at(0), failure);
}

TEST_F(ResolveCacheTest, keepsServicesAndHostsApart)
{
    const auto one = read(first);
    const auto two = read(second, kOther);
    Told third;
    const auto three =
        cache->resolve(HostEndpoint{.host = "Phone.local"}, queue,
                       [&third](const DnsSd::ResolveUpdate& update) { third.note(update); });
    ASSERT_EQ(dnsSd.count(), 3U);
    EXPECT_EQ(dnsSd.resolutions().at(2).request, HostEndpoint{.host = "Phone.local"});
    ServiceEndpoint elsewhere = kPhone;
    elsewhere.domain = "example.org";
    const auto four = read(first, elsewhere);
    EXPECT_EQ(dnsSd.count(), 4U);
    dnsSd.resolutions().at(0).tell(found({foundAt("192.0.2.1")}));
    dnsSd.resolutions().at(1).tell(found({foundAt("192.0.2.2")}));
    dnsSd.resolutions().at(2).tell(found({foundAt("192.0.2.3")}));
    ASSERT_TRUE(first.waitFor(1) && second.waitFor(1) && third.waitFor(1));
    EXPECT_EQ(first.at(0).addresses.front(), foundAt("192.0.2.1"));
    EXPECT_EQ(second.at(0).addresses.front(), foundAt("192.0.2.2"));
    EXPECT_EQ(third.at(0).addresses.front(), foundAt("192.0.2.3"));
}

TEST_F(ResolveCacheTest, tellsNothingToOneThatIsGone)
{
    auto one = read(first);
    const auto two = read(second);
    one.reset();
    dnsSd.resolutions().at(0).tell(found({foundAt("192.0.2.1")}));
    ASSERT_TRUE(second.waitFor(1));
    EXPECT_FALSE(first.waitFor(1, 0ms));
}

TEST_F(ResolveCacheTest, dropsAQuestionThatNobodyNeedsForAWhile)
{
    open(ResolveCache::kFreshTime, 20ms);
    auto one = read(first);
    const auto before = processorTime();
    EXPECT_FALSE(dnsSd.waitForActive(0, kWatch)) << "somebody reads";
    EXPECT_LT(processorTime() - before, kWatch / 4) << "it looks again only from time to time";
    one.reset();
    EXPECT_TRUE(dnsSd.waitForActive(0, kPatience));
    const auto two = read(second);
    EXPECT_EQ(dnsSd.count(), 2U);
}

TEST_F(ResolveCacheTest, keepsAQuestionAsLongAfterItsLastUseAsAfterItsFirst)
{
    open(ResolveCache::kFreshTime * 60, 1500ms);
    read(first).reset();
    wait(1000ms);
    read(first).reset();
    wait(1000ms);
    const auto ask = read(first);
    EXPECT_EQ(dnsSd.count(), 1U);
}

TEST_F(ResolveCacheTest, saysNothingWhileOneFamilyMayStillHaveAddresses)
{
    const auto ask = read(first);
    auto update = found({});
    update.isSettledIPv6 = false;
    dnsSd.resolutions().at(0).tell(update);
    update = found({});
    dnsSd.resolutions().at(0).tell(update);
    ASSERT_TRUE(first.waitFor(1));
    EXPECT_EQ(first.at(0), update);
}

} // namespace quillbox
