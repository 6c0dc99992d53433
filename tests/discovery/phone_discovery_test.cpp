#include "discovery/phone_discovery.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_network.h"
#include "tests/fakes/recording_log.h"

#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillbox {
namespace {

using State = DnsSd::BrowseUpdate::State;
using testing::ElementsAre;
using testing::IsEmpty;

Endpoint phone(const std::string& name, std::string domain = "local")
{
    return ServiceEndpoint{.name = name, .type = "_quillbox._tcp", .domain = std::move(domain)};
}

class PhoneDiscoveryTest : public testing::Test {
protected:
    PhoneDiscoveryTest()
    {
        network.dnsSd().observe([this](const std::string& event) { log.push_back(event); });
        watch();
    }

    void watch()
    {
        discovery->resultChanged = [this](const std::vector<DiscoveredDevice>& devices) {
            lists.push_back(devices);
        };
    }

    FakeDnsSd::Browse browse() { return network.dnsSd().browses().back(); }

    std::vector<std::string> namesFor(const std::vector<Endpoint>& results)
    {
        discovery->start();
        browse().tell(readyWith(results));
        dispatch.runAll();
        std::vector<std::string> names;
        for (const auto& device : lists.back())
            names.push_back(device.name);
        return names;
    }

    FakeDispatch dispatch;
    FakeNetwork network;
    std::vector<std::string> log;
    RecordingLog story;
    std::vector<std::vector<DiscoveredDevice>> lists;
    std::shared_ptr<PhoneDiscovery> discovery = std::make_shared<PhoneDiscovery>(
        dispatch, network, story, "org.quillbox.Helper", "_quillbox._tcp");
};

TEST_F(PhoneDiscoveryTest, hasAUtilityQueueOfItsOwn)
{
    const auto other = std::make_shared<PhoneDiscovery>(
        dispatch, network, story, "org.quillbox.Helper", "_quillbox-admin._tcp");
    ASSERT_EQ(dispatch.queueCount(), 2U);
    for (const std::size_t place : {0U, 1U}) {
        EXPECT_EQ(dispatch.queue(place)->label(), "org.quillbox.Helper.discovery");
        EXPECT_EQ(dispatch.queue(place)->qualityOfService(), QualityOfService::Utility);
    }
    discovery->start();
    other->start();
    EXPECT_EQ(network.dnsSd().browses().at(0).queue, dispatch.queue(0));
    EXPECT_EQ(network.dnsSd().browses().at(1).queue, dispatch.queue(1));
}

TEST_F(PhoneDiscoveryTest, browsesNothingBeforeItIsStarted)
{
    EXPECT_THAT(network.dnsSd().browses(), IsEmpty());
}

TEST_F(PhoneDiscoveryTest, browsesItsTypeOnItsQueue)
{
    discovery->start();
    EXPECT_EQ(browse().request, "_quillbox._tcp");
    EXPECT_EQ(browse().queue, dispatch.queue(0));
}

TEST_F(PhoneDiscoveryTest, reportsAnEmptyListWhenTheLastPhoneGoes)
{
    EXPECT_THAT(namesFor({phone("Quillbox")}), ElementsAre("Quillbox"));
    browse().tell(readyWith({}));
    dispatch.runAll();
    EXPECT_THAT(lists.back(), IsEmpty());
    EXPECT_EQ(lists.size(), 2U);
}

TEST_F(PhoneDiscoveryTest, keepsThePhonesNamedAfterTheProductOnly)
{
    EXPECT_THAT(namesFor({phone("Quillbox"), phone("Quillbox Office"), phone("Quillbox-1"),
                          phone("quillbox tablet"), phone("quillbox"), phone("Quillbox2"),
                          phone("QuillboxPhone"), phone("My Quillbox"), phone(""), phone("Quillbo"),
                          phone("Quillbox\tOffice"), phone("Quillbox ")}),
                ElementsAre("Quillbox", "Quillbox ", "Quillbox Office"));
}

TEST_F(PhoneDiscoveryTest, comparesNamesUnderCanonicalEquivalence)
{
    // With a combining accent the space, or the last letter, is another character.
    EXPECT_THAT(namesFor({phone("Quillbox \xcc\x81Office"), phone("Quillbox\xcc\x81")}), IsEmpty());
}

TEST_F(PhoneDiscoveryTest, sortsByCodePointsNotByLocaleOrNumber)
{
    EXPECT_THAT(namesFor({phone("Quillbox b"), phone("Quillbox B"), phone("Quillbox")}),
                ElementsAre("Quillbox", "Quillbox B", "Quillbox b"));
    EXPECT_THAT(namesFor({phone("Quillbox 9"), phone("Quillbox 10")}),
                ElementsAre("Quillbox 10", "Quillbox 9"));
}

TEST_F(PhoneDiscoveryTest, sortsAstralCharactersBehindTheBasicPlane)
{
    // In UTF-16 the first would sort before the second.
    EXPECT_THAT(namesFor({phone("Quillbox \U0001F4F1"), phone("Quillbox \uFB01")}),
                ElementsAre("Quillbox \uFB01", "Quillbox \U0001F4F1"));
}

TEST_F(PhoneDiscoveryTest, sortsByTheNormalisedNameAndKeepsTheNameVerbatim)
{
    // Decomposed, "é" begins with "e" and would sort before "f".
    EXPECT_THAT(namesFor({phone("Quillbox e\xcc\x81"), phone("Quillbox f")}),
                ElementsAre("Quillbox f", "Quillbox e\xcc\x81"));
}

TEST_F(PhoneDiscoveryTest, reportsTwoResultsOfOneNameAdjacentAndInTheOrderFound)
{
    namesFor({phone("Quillbox", "home.example"), phone("Quillbox A"),
              phone("Quillbox", "office.example")});
    EXPECT_THAT(lists.back(),
                ElementsAre(DiscoveredDevice{phone("Quillbox", "home.example"), "Quillbox"},
                            DiscoveredDevice{phone("Quillbox", "office.example"), "Quillbox"},
                            DiscoveredDevice{phone("Quillbox A"), "Quillbox A"}));
}

TEST_F(PhoneDiscoveryTest, keepsTheOrderOfManyResultsOfOneName)
{
    std::vector<Endpoint> results;
    for (int number = 0; number < 100; ++number)
        results.push_back(
            phone(number % 2 == 0 ? "Quillbox" : "Quillbox A", "site" + std::to_string(number)));
    namesFor(results);
    ASSERT_EQ(lists.back().size(), results.size());
    for (std::size_t place = 0; place < 50; ++place) {
        EXPECT_EQ(lists.back()[place].endpoint, results[2 * place]);
        EXPECT_EQ(lists.back()[50 + place].endpoint, results[2 * place + 1]);
    }
}

TEST_F(PhoneDiscoveryTest, buildsEveryListAfresh)
{
    namesFor({phone("Quillbox A"), phone("Quillbox B")});
    browse().tell(readyWith({phone("Quillbox B")}));
    dispatch.runAll();
    EXPECT_THAT(lists.back(), ElementsAre(DiscoveredDevice{phone("Quillbox B"), "Quillbox B"}));
}

TEST_F(PhoneDiscoveryTest, reportsOnTheMainQueueOnly)
{
    discovery->start();
    browse().tell(readyWith({phone("Quillbox")}));
    dispatch.queue(0)->run();
    EXPECT_THAT(lists, IsEmpty());
    dispatch.main().run();
    EXPECT_EQ(lists.size(), 1U);
}

TEST_F(PhoneDiscoveryTest, reportsOneEmptyListAndBrowsesNoMoreWhenBrowsingFails)
{
    discovery->start();
    browse().tell({State::Failed, std::make_error_code(std::errc::not_supported), {}});
    dispatch.advance(std::chrono::hours(1));
    ASSERT_EQ(lists.size(), 1U);
    EXPECT_THAT(lists.back(), IsEmpty());
    EXPECT_EQ(network.dnsSd().browses().size(), 1U);
    EXPECT_FALSE(browse().isEnded());
}

TEST_F(PhoneDiscoveryTest, reportsNoEmptyListBeforeThePhonesAreKnown)
{
    discovery->start();
    browse().tell({State::Waiting, std::make_error_code(std::errc::network_down), {}});
    browse().tell(readyWith({}));
    dispatch.runAll();
    EXPECT_THAT(lists, IsEmpty());
}

TEST_F(PhoneDiscoveryTest, keepsTheListWhileTheEngineIsAway)
{
    namesFor({phone("Quillbox")});
    browse().tell({State::Waiting, std::make_error_code(std::errc::network_down), {}});
    browse().tell(readyWith({phone("Quillbox")}));
    dispatch.runAll();
    EXPECT_EQ(lists.size(), 1U);
}

TEST_F(PhoneDiscoveryTest, reportsTheListOfANewBrowseThoughItIsTheSame)
{
    namesFor({phone("Quillbox")});
    namesFor({phone("Quillbox")});
    EXPECT_EQ(lists.size(), 2U);
}

TEST_F(PhoneDiscoveryTest, endsTheOldBrowseBeforeItStartsTheNew)
{
    discovery->start();
    discovery->start();
    EXPECT_THAT(log, ElementsAre("browse.start _quillbox._tcp", "browse.cancel _quillbox._tcp",
                                 "browse.start _quillbox._tcp"));
}

TEST_F(PhoneDiscoveryTest, stillDeliversWhatTheOldBrowseHadQueued)
{
    discovery->start();
    browse().tell(readyWith({phone("Quillbox Old")}));
    discovery->start();
    dispatch.runAll();
    ASSERT_EQ(lists.size(), 1U);
    EXPECT_EQ(lists.back().front().name, "Quillbox Old");
}

TEST_F(PhoneDiscoveryTest, stillDeliversWhatWasUnderWayWhenItStops)
{
    discovery->start();
    browse().tell(readyWith({phone("Quillbox")}));
    dispatch.queue(0)->run();
    discovery->stop();
    dispatch.runAll();
    EXPECT_EQ(lists.size(), 1U);
    EXPECT_TRUE(browse().isEnded());
}

TEST_F(PhoneDiscoveryTest, stopsWithoutHavingStarted)
{
    discovery->stop();
    dispatch.runAll();
    EXPECT_THAT(lists, IsEmpty());
}

TEST_F(PhoneDiscoveryTest, dropsResultsWhenNobodyListens)
{
    discovery->resultChanged = nullptr;
    discovery->start();
    browse().tell(readyWith({phone("Quillbox A")}));
    EXPECT_NO_THROW(dispatch.runAll());
    watch();
    browse().tell(readyWith({phone("Quillbox B")}));
    dispatch.runAll();
    EXPECT_THAT(lists,
                ElementsAre(ElementsAre(DiscoveredDevice{phone("Quillbox B"), "Quillbox B"})));
}

TEST_F(PhoneDiscoveryTest, keepsTheCallbackUntilItHasReturned)
{
    bool wasKept = false;
    auto token = std::make_shared<int>(0);
    const std::weak_ptr<int> own = token;
    discovery->resultChanged = [&, token = std::move(token)](const auto& /*devices*/) {
        // In case the callback's own references to them go.
        auto& kept = wasKept;
        const auto& callback = own;
        discovery->resultChanged = nullptr;
        kept = !callback.expired();
    };
    discovery->start();
    browse().tell(readyWith({phone("Quillbox")}));
    dispatch.runAll();
    EXPECT_TRUE(wasKept);
}

TEST_F(PhoneDiscoveryTest, dropsResultsWhenItIsGone)
{
    discovery->start();
    const auto orphaned = network.dnsSd().browses().back();
    orphaned.tell(readyWith({phone("Quillbox")}));
    dispatch.queue(0)->run();
    discovery.reset();
    orphaned.tell(readyWith({phone("Quillbox")}));
    dispatch.runAll();
    EXPECT_THAT(lists, IsEmpty());
}

TEST_F(PhoneDiscoveryTest, tellsItsStory)
{
    namesFor({phone("Quillbox Office"), phone("Printer")});
    browse().tell({State::Failed, std::make_error_code(std::errc::not_supported), {}});
    dispatch.runAll();
    EXPECT_THAT(story.lines,
                ElementsAre("discovery: _quillbox._tcp: browsing",
                            R"(discovery: _quillbox._tcp: "Quillbox Office" has appeared)",
                            "discovery: _quillbox._tcp: other services of this type: 1",
                            "discovery: _quillbox._tcp: cannot browse: "
                                + std::make_error_code(std::errc::not_supported).message()));
}

} // namespace
} // namespace quillbox
