#include "platform/dnssd/engine/automatic_engine.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_engine.h"

#include <memory>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox::dnssd {

namespace {

using namespace std::chrono_literals;

class AutomaticEngineTest : public testing::Test {
protected:
    AutomaticEngineTest()
    {
        engine->start([this](const Event& event) { events.push_back(event); });
    }

    FakeDispatch dispatch;
    FakeEngine daemon;
    FakeEngine embedded;
    std::vector<bool> daemonChanges;
    std::vector<Event> events;
    std::unique_ptr<Engine> engine = makeAutomaticEngine(
        dispatch.makeQueue("dns-sd", QualityOfService::Utility), daemon.makeEngine(),
        embedded.makeEngine(), [this](bool isDaemonUp) { daemonChanges.push_back(isDaemonUp); },
        {.startPatience = 10s, .restartPatience = 1s});
};

TEST_F(AutomaticEngineTest, sendsRequestsToTheEngineThatIsUp)
{
    engine->send(BrowseRequest{9, "_smb._tcp"});
    daemon.up("daemon");
    engine->send(BrowseRequest{1, "_smb._tcp"});
    EXPECT_EQ(daemon.requests(), (std::vector<Request>{BrowseRequest{1, "_smb._tcp"}}));

    daemon.down();
    dispatch.advance(1s);
    engine->send(BrowseRequest{8, "_smb._tcp"});
    embedded.up("embedded");
    engine->send(BrowseRequest{2, "_smb._tcp"});
    EXPECT_EQ(embedded.requests(), (std::vector<Request>{BrowseRequest{2, "_smb._tcp"}}));
    EXPECT_EQ(daemon.requests().size(), 1U);
    EXPECT_EQ(events, (std::vector<Event>{EngineUp{"daemon"}, EngineDown{}, EngineUp{"embedded"}}));
}

TEST_F(AutomaticEngineTest, stopsTheEmbeddedEngineBeforeTheDaemonIsUp)
{
    daemon.down();
    dispatch.runAll();
    embedded.up("embedded");
    EXPECT_FALSE(embedded.isStopped());
    daemon.up("daemon");
    EXPECT_TRUE(embedded.isStopped());
    EXPECT_EQ(events.back(), Event(EngineUp{"daemon"}));
}

TEST_F(AutomaticEngineTest, mayStopTheEmbeddedEngineInsideItsOwnReport)
{
    daemon.up("daemon");
    daemon.down(); // it is on probation now
    dispatch.runAll();
    embedded.up("embedded");
    daemon.up("daemon again");
    EXPECT_EQ(events.back(), Event(EngineUp{"embedded"}));
    embedded.down();
    EXPECT_TRUE(embedded.isStopped());
    EXPECT_EQ(events.back(), Event(EngineUp{"daemon again"}));
}

TEST_F(AutomaticEngineTest, saysWhetherTheDaemonIsUp)
{
    daemon.down();
    dispatch.runAll();
    embedded.up("embedded");
    daemon.up("daemon");
    daemon.down();
    dispatch.runAll();
    embedded.up("embedded again");
    daemon.up("daemon on probation");
    daemon.down();
    EXPECT_EQ(daemonChanges, (std::vector<bool>{false, true, false, true, false}));
}

TEST_F(AutomaticEngineTest, stopsBothAndThenDoesNothing)
{
    daemon.down();
    dispatch.runAll();
    embedded.up("embedded");
    events.clear();
    engine->stop();
    EXPECT_TRUE(daemon.isStopped());
    EXPECT_TRUE(embedded.isStopped());
    dispatch.advance(60s);
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(daemonChanges, std::vector<bool>{false});
}

TEST_F(AutomaticEngineTest, waitsNoLongerForASilentDaemonThanItSays)
{
    dispatch.advance(9s);
    embedded.up("too early");
    EXPECT_TRUE(events.empty());
    dispatch.advance(1001ms);
    embedded.up("embedded");
    EXPECT_EQ(events, std::vector<Event>{EngineUp{"embedded"}});
}

} // namespace

} // namespace quillbox::dnssd
