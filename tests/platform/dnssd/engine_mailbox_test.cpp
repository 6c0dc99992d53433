#include "platform/dnssd/engine/engine_mailbox.h"

#include <vector>

#include <gtest/gtest.h>
#include <poll.h>

namespace quillbox::dnssd {

namespace {

TEST(EngineMailbox, isReadableWhileItHoldsSomething)
{
    EngineMailbox<int> mailbox([](const Event&) {});
    const auto isReadable = [&mailbox] {
        pollfd waiting{mailbox.descriptor(), POLLIN, 0};
        return ::poll(&waiting, 1, 0) == 1;
    };
    EXPECT_FALSE(isReadable());
    mailbox.post(1);
    mailbox.post(2);
    EXPECT_TRUE(isReadable());
    EXPECT_EQ(mailbox.take().items, (std::vector<int>{1, 2}));
    EXPECT_FALSE(isReadable());
    mailbox.requestStop();
    EXPECT_TRUE(isReadable());
    EXPECT_TRUE(mailbox.take().isStopping);
}

TEST(EngineMailbox, tellsNothingMoreOnceItIsShut)
{
    std::vector<Event> events;
    EngineMailbox<int> mailbox([&events](const Event& event) { events.push_back(event); });
    mailbox.emit(Settled{1});
    mailbox.shut();
    mailbox.emit(Settled{2});
    EXPECT_EQ(events, std::vector<Event>{Settled{1}});
}

} // namespace

} // namespace quillbox::dnssd
