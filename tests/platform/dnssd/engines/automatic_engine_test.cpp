#include "platform/dnssd/engine/automatic_engine.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_engine.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

namespace quillbox::dnssd {

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class AutomaticEngineTest : public testing::Test {
protected:
    AutomaticEngineTest()
    {
        engine->start([this](const Event& event) { note(event); });
    }

    void note(const Event& event)
    {
        if (const auto* up = std::get_if<EngineUp>(&event)) {
            EXPECT_NE(up->hostName.starts_with("daemon"), embedded.isStarted())
                << "there are never two";
            log.push_back("up " + up->hostName);
        } else if (std::holds_alternative<EngineDown>(event)) {
            log.emplace_back("down");
        } else {
            log.emplace_back("event");
        }
    }

    std::vector<std::string> takeLog() { return std::exchange(log, {}); }

    /// The daemon dies within its first seconds, and the embedded engine is up.
    void dieYoung()
    {
        daemon.up("daemon");
        dispatch.advance(1s);
        daemon.down();
        embedded.up("embedded");
        takeLog();
    }

    FakeDispatch dispatch;
    FakeEngine daemon;
    FakeEngine embedded;
    std::vector<bool> daemonChanges;
    std::vector<std::string> log;
    std::unique_ptr<Engine> engine = makeAutomaticEngine(
        dispatch.makeQueue("dns-sd", QualityOfService::Utility), daemon.makeEngine(),
        embedded.makeEngine(), [this](bool isDaemonUp) { daemonChanges.push_back(isDaemonUp); });
};

TEST_F(AutomaticEngineTest, sendsRequestsToTheEngineThatIsUp)
{
    engine->send(BrowseRequest{9, "_smb._tcp"});
    daemon.up("daemon");
    engine->send(BrowseRequest{1, "_smb._tcp"});
    EXPECT_EQ(daemon.requests(), (std::vector<Request>{BrowseRequest{1, "_smb._tcp"}}));

    daemon.down();
    engine->send(BrowseRequest{8, "_smb._tcp"});
    embedded.up("embedded");
    engine->send(BrowseRequest{2, "_smb._tcp"});
    EXPECT_EQ(embedded.requests(), (std::vector<Request>{BrowseRequest{2, "_smb._tcp"}}));
    EXPECT_EQ(daemon.requests().size(), 1U);
}

TEST_F(AutomaticEngineTest, usesTheDaemonThatAnswers)
{
    dispatch.advance(299ms);
    daemon.up("daemon");
    dispatch.advance(10s);
    daemon.emit(Settled{1});
    EXPECT_THAT(log, ElementsAre("up daemon", "event"));
    EXPECT_FALSE(embedded.isStarted());
}

TEST_F(AutomaticEngineTest, waitsAMomentForADaemonThatDoesNotAnswer)
{
    dispatch.advance(299ms);
    EXPECT_FALSE(embedded.isStarted());
    dispatch.advance(1ms);
    embedded.up("embedded");
    EXPECT_THAT(log, ElementsAre("up embedded"));
}

TEST_F(AutomaticEngineTest, doesNotWaitWhenThereIsNoDaemon)
{
    daemon.down();
    EXPECT_TRUE(embedded.isStarted());
    EXPECT_THAT(log, IsEmpty());
}

TEST_F(AutomaticEngineTest, handsOverToADaemonThatAppears)
{
    daemon.down();
    embedded.up("embedded");
    takeLog();
    daemon.up("daemon");
    EXPECT_TRUE(embedded.isStopped());
    EXPECT_THAT(log, ElementsAre("down", "up daemon"));
}

TEST_F(AutomaticEngineTest, handsOverFromAnEngineThatIsNotUpYet)
{
    daemon.down();
    daemon.up("daemon");
    EXPECT_THAT(log, ElementsAre("up daemon"));
}

TEST_F(AutomaticEngineTest, givesADaemonTimeToRestartHoweverOftenItSaysThatItIsDown)
{
    daemon.up("daemon");
    dispatch.advance(5s);
    daemon.down();
    dispatch.advance(500ms);
    daemon.down();
    dispatch.advance(499ms);
    daemon.up("daemon again");
    dispatch.advance(10s);
    EXPECT_THAT(log, ElementsAre("up daemon", "down", "up daemon again"));
    EXPECT_FALSE(embedded.isStarted());
}

TEST_F(AutomaticEngineTest, takesOverFromADaemonThatStaysAway)
{
    daemon.up("daemon");
    dispatch.advance(5s);
    daemon.down();
    dispatch.advance(999ms);
    EXPECT_FALSE(embedded.isStarted());
    dispatch.advance(1ms);
    embedded.up("embedded");
    dispatch.advance(90s);
    daemon.up("daemon");
    EXPECT_THAT(log, ElementsAre("up daemon", "down", "up embedded", "down", "up daemon"));
}

TEST_F(AutomaticEngineTest, waitsForNoDaemonThatDiesYoung)
{
    dispatch.advance(100ms);
    daemon.up("daemon");
    dispatch.advance(4999ms);
    daemon.down();
    EXPECT_TRUE(embedded.isStarted());
    EXPECT_THAT(log, ElementsAre("up daemon", "down"));
}

TEST_F(AutomaticEngineTest, usesADaemonThatDiedYoungAgainAfterAProbation)
{
    dieYoung();
    daemon.up("daemon");
    dispatch.advance(1s);
    daemon.down();
    dispatch.advance(1s);
    daemon.up("daemon again");
    dispatch.advance(30s - 1ms);
    EXPECT_THAT(log, IsEmpty());
    dispatch.advance(1ms);
    EXPECT_THAT(takeLog(), ElementsAre("down", "up daemon again"));

    // Its age counts from there.
    dispatch.advance(4s);
    daemon.down();
    embedded.up("embedded");
    EXPECT_THAT(takeLog(), ElementsAre("down", "up embedded"));
    daemon.up("daemon");
    dispatch.advance(35s);
    takeLog();
    daemon.down();
    EXPECT_FALSE(embedded.isStarted()) << "not young: it is waited for";
    daemon.up("daemon");
    EXPECT_THAT(log, ElementsAre("down", "up daemon")) << "and used at once";
}

TEST_F(AutomaticEngineTest, usesADaemonOnProbationWhereNothingElseIsUp)
{
    daemon.up("daemon");
    daemon.down();
    embedded.down();
    takeLog();
    daemon.up("daemon again");
    EXPECT_THAT(takeLog(), ElementsAre("up daemon again"));

    daemon.down();
    embedded.up("embedded");
    daemon.up("daemon");
    EXPECT_THAT(takeLog(), ElementsAre("down", "up embedded"));
    embedded.down();
    EXPECT_TRUE(embedded.isStopped());
    EXPECT_THAT(takeLog(), ElementsAre("down", "up daemon"));
}

TEST_F(AutomaticEngineTest, waitsForTheEmbeddedEngineThatItStartsAgain)
{
    daemon.up("daemon");
    daemon.down();
    embedded.down();
    daemon.up("daemon");
    daemon.down();
    takeLog();
    daemon.up("daemon");
    EXPECT_THAT(log, IsEmpty()) << "this time it has not said that it is down";
    embedded.up("embedded");
    EXPECT_THAT(log, ElementsAre("up embedded"));
}

TEST_F(AutomaticEngineTest, passesARestartOfADaemonOnOnceItsProbationIsOver)
{
    dieYoung();
    daemon.up("daemon");
    dispatch.advance(30s);
    takeLog();
    daemon.up("daemon again");
    EXPECT_THAT(log, ElementsAre("down", "up daemon again"));
}

TEST_F(AutomaticEngineTest, passesOnTheComingAndGoingOfTheEmbeddedEngine)
{
    daemon.down();
    embedded.down();
    embedded.down();
    embedded.up("embedded");
    embedded.down();
    embedded.up("embedded");
    EXPECT_THAT(log, ElementsAre("down", "up embedded", "down", "up embedded"));
}

TEST_F(AutomaticEngineTest, dropsWhatAnEngineSaysThatIsNotUsed)
{
    daemon.down();
    embedded.up("embedded");
    takeLog();
    daemon.emit(Settled{1});
    EXPECT_THAT(log, IsEmpty());
}

TEST_F(AutomaticEngineTest, saysOnceThatThereIsNoDaemonAndNothingOfOneFromTheStart)
{
    dispatch.advance(kStartPatience);
    daemon.down();
    EXPECT_EQ(daemonChanges, std::vector<bool>{false});
    daemon.up("daemon");
    EXPECT_EQ(daemonChanges, (std::vector<bool>{false, true}));
    dispatch.advance(kYoungAge);
    daemon.down();
    daemon.up("daemon, restarted in time");
    EXPECT_EQ(daemonChanges, (std::vector<bool>{false, true}));
}

TEST_F(AutomaticEngineTest, saysWhetherTheDaemonIsUp)
{
    daemon.down();
    embedded.up("embedded");
    daemon.up("daemon");
    daemon.down();
    embedded.up("embedded again");
    daemon.up("daemon on probation");
    daemon.down();
    EXPECT_EQ(daemonChanges, (std::vector<bool>{false, true, false, true, false}));
}

TEST_F(AutomaticEngineTest, stopsBothAndThenDoesNothing)
{
    dieYoung();
    daemon.up("daemon");
    engine->stop();
    EXPECT_TRUE(daemon.isStopped());
    EXPECT_TRUE(embedded.isStopped());
    dispatch.advance(60s);
    EXPECT_THAT(log, IsEmpty());
}

} // namespace

} // namespace quillbox::dnssd
