#include "platform/dnssd/engine/automatic_engine_choice.h"
#include "tests/platform/dnssd/engines/start_time.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace quillbox::dnssd {

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Source = AutomaticEngineChoice::Source;

class AutomaticEngineChoiceTest : public testing::Test {
protected:
    AutomaticEngineChoiceTest() { choice.begin(kStart); }

    void daemon(Event event, std::chrono::milliseconds at = 0ms)
    {
        choice.handle(Source::Daemon, std::move(event), kStart + at);
    }
    void embedded(Event event) { choice.handle(Source::Embedded, std::move(event), kStart); }

    std::vector<std::string> takeLog() { return std::exchange(log, {}); }

    static Event down() { return EngineDown{make_error_code(DnsSdError::EngineUnavailable)}; }

    std::vector<std::string> log;
    AutomaticEngineChoice choice{{},
                                 {.emit =
                                      [this](const Event& event) {
                                          if (const auto* up = std::get_if<EngineUp>(&event))
                                              log.push_back("up " + up->hostName);
                                          else if (std::holds_alternative<EngineDown>(event))
                                              log.emplace_back("down");
                                          else
                                              log.emplace_back("event");
                                      },
                                  .startEmbedded = [this] { log.emplace_back("start embedded"); },
                                  .stopEmbedded = [this] { log.emplace_back("stop embedded"); }}};
};

TEST_F(AutomaticEngineChoiceTest, usesTheDaemonThatAnswers)
{
    daemon(EngineUp{"daemon"}, 299ms);
    choice.elapse(kStart + 10s);
    EXPECT_FALSE(choice.deadline());
    EXPECT_EQ(choice.active(), Source::Daemon);
    daemon(Settled{1});
    EXPECT_THAT(log, ElementsAre("up daemon", "event"));
}

TEST_F(AutomaticEngineChoiceTest, waitsAMomentForADaemonThatDoesNotAnswer)
{
    ASSERT_EQ(choice.deadline(), kStart + 300ms);
    choice.elapse(kStart + 299ms);
    EXPECT_THAT(log, IsEmpty());
    choice.elapse(kStart + 300ms);
    embedded(EngineUp{"embedded"});
    EXPECT_EQ(choice.active(), Source::Embedded);
    EXPECT_THAT(log, ElementsAre("start embedded", "up embedded"));
}

TEST_F(AutomaticEngineChoiceTest, doesNotWaitWhenThereIsNoDaemon)
{
    daemon(down());
    EXPECT_THAT(log, ElementsAre("start embedded"));
    EXPECT_FALSE(choice.active());
    EXPECT_FALSE(choice.deadline());
}

TEST_F(AutomaticEngineChoiceTest, handsOverToADaemonThatAppears)
{
    daemon(down());
    embedded(EngineUp{"embedded"});
    takeLog();
    daemon(EngineUp{"daemon"});
    EXPECT_THAT(takeLog(), ElementsAre("down", "stop embedded", "up daemon"));
    EXPECT_EQ(choice.active(), Source::Daemon);
    embedded(Settled{1});
    embedded(down());
    EXPECT_THAT(log, IsEmpty());
}

TEST_F(AutomaticEngineChoiceTest, handsOverFromAnEngineThatIsNotUpYet)
{
    daemon(down());
    daemon(EngineUp{"daemon"});
    EXPECT_THAT(log, ElementsAre("start embedded", "stop embedded", "up daemon"));
}

TEST_F(AutomaticEngineChoiceTest, givesADaemonTimeToRestart)
{
    daemon(EngineUp{"daemon"});
    daemon(down(), 5000ms);
    EXPECT_FALSE(choice.active());
    ASSERT_EQ(choice.deadline(), kStart + 6s);
    daemon(EngineUp{"daemon"}, 5900ms);
    choice.elapse(kStart + 10s);
    EXPECT_THAT(log, ElementsAre("up daemon", "down", "up daemon"));
}

TEST_F(AutomaticEngineChoiceTest, waitsForNoDaemonThatDiesYoung)
{
    daemon(EngineUp{"daemon"}, 1s);
    daemon(down(), 5999ms);
    EXPECT_THAT(log, ElementsAre("up daemon", "down", "start embedded"));
    EXPECT_FALSE(choice.deadline());
}

TEST_F(AutomaticEngineChoiceTest, usesADaemonThatDiedYoungAgainAfterAProbation)
{
    daemon(EngineUp{"daemon"});
    daemon(down(), 1s);
    embedded(EngineUp{"embedded"});
    takeLog();
    daemon(EngineUp{"daemon"}, 2s);
    daemon(down(), 3s);
    EXPECT_FALSE(choice.deadline());
    daemon(EngineUp{"daemon again"}, 4s);
    ASSERT_EQ(choice.deadline(), kStart + 34s);
    choice.elapse(kStart + 34s - 1ms);
    EXPECT_THAT(log, IsEmpty());
    EXPECT_EQ(choice.active(), Source::Embedded);
    choice.elapse(kStart + 34s);
    EXPECT_THAT(log, ElementsAre("down", "stop embedded", "up daemon again"));
    EXPECT_FALSE(choice.deadline());

    // Its age counts from there.
    takeLog();
    daemon(down(), 38s);
    EXPECT_THAT(log, ElementsAre("down", "start embedded"));
    embedded(EngineUp{"embedded"});
    daemon(EngineUp{"daemon"}, 40s);
    choice.elapse(kStart + 70s);
    daemon(down(), 75s);
    EXPECT_EQ(choice.deadline(), kStart + 76s) << "not young: it is waited for";
    daemon(EngineUp{"daemon"}, 75500ms);
    EXPECT_EQ(choice.active(), Source::Daemon) << "and used at once";
}

TEST_F(AutomaticEngineChoiceTest, usesADaemonOnProbationWhereNothingElseIsUp)
{
    daemon(EngineUp{"daemon"});
    daemon(down(), 1s);
    embedded(down());
    takeLog();
    daemon(EngineUp{"daemon again"}, 2s);
    EXPECT_THAT(takeLog(), ElementsAre("stop embedded", "up daemon again"));

    daemon(down(), 3s);
    embedded(EngineUp{"embedded"});
    daemon(EngineUp{"daemon"}, 4s);
    EXPECT_EQ(choice.active(), Source::Embedded);
    takeLog();
    embedded(down());
    EXPECT_THAT(takeLog(), ElementsAre("down", "stop embedded", "up daemon"));
}

TEST_F(AutomaticEngineChoiceTest, givesADaemonItsTimeHoweverOftenItSaysThatItIsDown)
{
    daemon(EngineUp{"daemon"});
    daemon(down(), 5000ms);
    daemon(down(), 5100ms);
    EXPECT_THAT(log, ElementsAre("up daemon", "down"));
    EXPECT_EQ(choice.deadline(), kStart + 6s);
}

TEST_F(AutomaticEngineChoiceTest, waitsForTheEmbeddedEngineThatItStartsAgain)
{
    daemon(EngineUp{"daemon"});
    daemon(down(), 1s);
    embedded(down());
    daemon(EngineUp{"daemon"}, 2s);
    daemon(down(), 3s);
    takeLog();
    daemon(EngineUp{"daemon"}, 4s);
    EXPECT_THAT(log, IsEmpty()) << "this time it has not said that it is down";
    embedded(EngineUp{"embedded"});
    EXPECT_EQ(choice.active(), Source::Embedded);
}

TEST_F(AutomaticEngineChoiceTest, passesARestartOfADaemonOnOnceItsProbationIsOver)
{
    daemon(EngineUp{"daemon"});
    daemon(down(), 1s);
    embedded(EngineUp{"embedded"});
    daemon(EngineUp{"daemon"}, 2s);
    choice.elapse(kStart + 32s);
    takeLog();
    daemon(EngineUp{"daemon again"}, 40s);
    EXPECT_THAT(log, ElementsAre("down", "up daemon again"));
}

TEST_F(AutomaticEngineChoiceTest, takesOverFromADaemonThatStaysAway)
{
    daemon(EngineUp{"daemon"});
    daemon(down(), 5000ms);
    choice.elapse(kStart + 6s);
    embedded(EngineUp{"embedded"});
    daemon(EngineUp{"daemon"}, 90s);
    EXPECT_THAT(log, ElementsAre("up daemon", "down", "start embedded", "up embedded", "down",
                                 "stop embedded", "up daemon"));
}

TEST_F(AutomaticEngineChoiceTest, passesOnTheComingAndGoingOfTheEmbeddedEngine)
{
    daemon(down());
    embedded(down());
    embedded(down());
    embedded(EngineUp{"embedded"});
    embedded(down());
    EXPECT_FALSE(choice.active());
    embedded(EngineUp{"embedded"});
    EXPECT_THAT(log, ElementsAre("start embedded", "down", "up embedded", "down", "up embedded"));
}

TEST_F(AutomaticEngineChoiceTest, dropsWhatAnEngineSaysThatIsNotUsed)
{
    daemon(down());
    embedded(EngineUp{"embedded"});
    takeLog();
    daemon(Settled{1});
    EXPECT_THAT(log, IsEmpty());
}

} // namespace

} // namespace quillbox::dnssd
