#include "platform/dnssd/avahi/publication_queue.h"
#include "tests/platform/dnssd/engines/start_time.h"

#include <vector>

#include <gmock/gmock.h>

namespace quillbox::dnssd {

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

constexpr auto kMaximum = static_cast<RequestId>(kRegistrationsAtOnce);

/// Takes all ids whose turn it is, without beginning them.
std::vector<RequestId> taken(PublicationQueue& queue)
{
    std::vector<RequestId> ids;
    for (auto id = queue.next(); id; id = queue.next())
        ids.push_back(*id);
    return ids;
}

TEST(PublicationQueue, servesInTheOrderOfAsking)
{
    PublicationQueue queue;
    for (const RequestId id : {7U, 3U, 5U, 3U})
        queue.wait(id);
    queue.leave(7);
    queue.wait(7);
    EXPECT_TRUE(queue.isWaiting(7));
    EXPECT_THAT(taken(queue), ElementsAre(3, 5, 7));
    EXPECT_FALSE(queue.isWaiting(7));
}

TEST(PublicationQueue, hasOneWaitWhileAsManyAreUnderwayAsMayBe)
{
    PublicationQueue queue;
    for (RequestId id = 1; id <= kMaximum; ++id)
        queue.begin(id, kStart);
    queue.wait(1000);
    EXPECT_EQ(queue.next(), std::nullopt);
    queue.begin(1, kStart + 1s);
    EXPECT_EQ(queue.next(), std::nullopt);
    queue.leave(2);
    EXPECT_EQ(queue.next(), 1000U);
}

TEST(PublicationQueue, oneThatIsUnderwayDoesNotWait)
{
    PublicationQueue queue;
    queue.wait(1);
    queue.begin(1, kStart);
    queue.wait(1);
    EXPECT_FALSE(queue.isWaiting(1));
    EXPECT_TRUE(queue.isUnderway(1));
    EXPECT_EQ(queue.next(), std::nullopt);
}

TEST(PublicationQueue, tellsWhoIsOverdueFromTheEarliestOn)
{
    PublicationQueue queue;
    EXPECT_EQ(queue.nextDeadline(), std::nullopt);
    queue.begin(1, kStart + 3s);
    queue.begin(2, kStart + 2s);
    queue.begin(3, kStart + 4s);
    queue.begin(2, kStart + 5s); // again, with a later deadline
    EXPECT_EQ(queue.nextDeadline(), kStart + 3s);
    EXPECT_EQ(queue.takeOverdue(kStart + 2s), std::nullopt);
    EXPECT_EQ(queue.takeOverdue(kStart + 4s), 1U);
    EXPECT_FALSE(queue.isUnderway(1));
    EXPECT_EQ(queue.takeOverdue(kStart + 4s), 3U);
    EXPECT_EQ(queue.takeOverdue(kStart + 4s), std::nullopt);
    EXPECT_EQ(queue.nextDeadline(), kStart + 5s);
}

} // namespace

} // namespace quillbox::dnssd
