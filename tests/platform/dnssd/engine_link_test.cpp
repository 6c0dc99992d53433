#include "platform/dnssd/operations/engine_link.h"
#include "tests/fakes/fake_engine.h"

#include <functional>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox::dnssd {

namespace {

using Calls = std::vector<std::string>;

class RecordingClient final : public EngineLink::Client {
public:
    void engineUp() override
    {
        log.emplace_back("up");
        if (onUp)
            onUp();
    }
    void engineDown(std::error_code /*error*/) override { log.emplace_back("down"); }
    void engineEvent(const Event& /*event*/) override { log.emplace_back("event"); }

    Calls log;
    std::function<void()> onUp;
};

class EngineLinkTest : public testing::Test {
protected:
    EngineLinkTest()
    {
        link.start();
        link.attach(client);
    }

    FakeEngine engine;
    EngineLink link{engine.makeEngine()};
    RecordingClient client;
};

} // namespace

TEST_F(EngineLinkTest, endsNoRequestThatTheEngineNoLongerHas)
{
    engine.up();
    const RequestId id = link.send(client, BrowseRequest{0, "_smb._tcp"});
    engine.down();
    engine.emit(Settled{id});
    link.end(id);
    link.end(0);
    EXPECT_EQ(engine.count<StopRequest>(), 0U);
    EXPECT_EQ(client.log, (Calls{"up", "down"})) << "no late event";
}

TEST_F(EngineLinkTest, endsARequestOnce)
{
    engine.up();
    const RequestId id = link.send(client, BrowseRequest{0, "_smb._tcp"});
    link.end(id);
    link.end(id);
    EXPECT_EQ(engine.count<StopRequest>(), 1U);
}

TEST_F(EngineLinkTest, leavesAClientThatAttachesDuringTheCallsToReadTheStateItself)
{
    RecordingClient other;
    client.onUp = [&] { link.attach(other); };
    engine.up();
    EXPECT_EQ(other.log, Calls{});
    engine.down();
    EXPECT_EQ(other.log, Calls{"down"});
}

TEST_F(EngineLinkTest, forgetsAClientHoweverOftenItComesBack)
{
    link.detach(client);
    link.attach(client);
    link.detach(client);
    engine.up();
    EXPECT_EQ(client.log, Calls{});
}

} // namespace quillbox::dnssd
