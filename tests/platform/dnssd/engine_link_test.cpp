#include "platform/dnssd/operations/engine_link.h"
#include "tests/fakes/fake_engine.h"

#include <functional>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox::dnssd {

namespace {

using Calls = std::vector<std::string>;

class RecordingClient final : public EngineLink::Client {
public:
    explicit RecordingClient(EngineLink& engineLink) : Client(engineLink) {}

    void engineUp() override
    {
        log.emplace_back("up");
        if (onUp)
            onUp();
    }
    void engineDown(std::error_code /*error*/) override { log.emplace_back("down"); }
    void engineEvent(const Event& /*event*/) override { log.emplace_back("event"); }

    RequestId ask()
    {
        send(BrowseRequest{0, "_smb._tcp"});
        return id;
    }
    using Client::end;

    Calls log;
    std::function<void()> onUp;
};

class EngineLinkTest : public testing::Test {
protected:
    EngineLinkTest() { link.start(); }

    FakeEngine engine;
    EngineLink link{engine.makeEngine()};
    std::optional<RecordingClient> client{link};
};

} // namespace

TEST_F(EngineLinkTest, endsNoRequestThatTheEngineNoLongerHas)
{
    engine.up();
    const RequestId id = client->ask();
    engine.down();
    engine.emit(Settled{id});
    EXPECT_FALSE(client->end());
    EXPECT_EQ(engine.count<StopRequest>(), 0U);
    EXPECT_EQ(client->log, (Calls{"up", "down"})) << "no late event";
}

TEST_F(EngineLinkTest, endsARequestOnce)
{
    engine.up();
    client->ask();
    EXPECT_TRUE(client->end());
    EXPECT_FALSE(client->end());
    EXPECT_EQ(engine.count<StopRequest>(), 1U);
}

TEST_F(EngineLinkTest, leavesAClientThatAttachesDuringTheCallsToReadTheStateItself)
{
    std::optional<RecordingClient> other;
    client->onUp = [&] { other.emplace(link); };
    engine.up();
    EXPECT_EQ(other->log, Calls{});
    engine.down();
    EXPECT_EQ(other->log, Calls{"down"});
}

TEST_F(EngineLinkTest, endsTheRequestOfAClientThatGoes)
{
    engine.up();
    const RequestId id = client->ask();
    client.reset();
    EXPECT_EQ(engine.requests().back(), Request(StopRequest{id}));
    engine.emit(Settled{id});
    engine.down();
}

} // namespace quillbox::dnssd
