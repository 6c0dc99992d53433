#include "platform/dnssd/browser.h"
#include "platform/dnssd/dns_sd_error.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_dns_sd.h"

#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using Update = DnsSd::BrowseUpdate;
using States = std::vector<Browser::State>;

ServiceEndpoint service(const std::string& name)
{
    return {name, "_smb._tcp", "local"};
}

class BrowserTest : public testing::Test {
protected:
    BrowserTest()
    {
        browser->setResultsChangedHandler(
            [this](const Browser::Results& results) { sets.push_back(results); });
        browser->setStateUpdateHandler([this](Browser::State state, std::error_code error) {
            states.push_back(state);
            errors.push_back(error);
        });
    }

    void start() { browser->start(queue); }

    void tell(const Update& update)
    {
        ASSERT_EQ(dnsSd.browses().size(), 1U);
        dnsSd.browses().front().tell(update);
    }

    FakeDispatch dispatch;
    std::shared_ptr<DispatchQueue> queue = dispatch.makeQueue("browse", QualityOfService::Utility);
    FakeDnsSd dnsSd;
    std::shared_ptr<Browser> browser = makeBrowser(dnsSd, "_smb._tcp");
    std::vector<Browser::Results> sets;
    States states;
    std::vector<std::error_code> errors;
};

} // namespace

TEST_F(BrowserTest, browsesItsTypeOnceStarted)
{
    EXPECT_TRUE(dnsSd.browses().empty());
    start();
    ASSERT_EQ(dnsSd.browses().size(), 1U);
    EXPECT_EQ(dnsSd.browses().front().subject, "_smb._tcp");
    EXPECT_EQ(dnsSd.browses().front().queue, queue);
}

TEST_F(BrowserTest, tellsEachNewErrorWhileItWaits)
{
    start();
    const auto wait = [this](std::errc error) {
        tell({Update::State::Waiting, std::make_error_code(error), {}});
        dispatch.runAll();
    };
    wait(std::errc::network_down);
    wait(std::errc::network_down);
    wait(std::errc::timed_out);
    EXPECT_EQ(states, (States{Browser::State::Waiting, Browser::State::Waiting}));
    EXPECT_EQ(errors.back(), std::errc::timed_out);
}

TEST_F(BrowserTest, deliversEachNewSet)
{
    start();
    tell({Update::State::Ready, {}, {}});
    dispatch.runAll();
    EXPECT_TRUE(sets.empty()) << "nothing has changed";
    EXPECT_EQ(states, States{Browser::State::Ready});
    tell({Update::State::Ready, {}, {service("a")}});
    tell({Update::State::Ready, {}, {service("a"), service("b")}});
    tell({Update::State::Ready, {}, {}});
    dispatch.runAll();
    EXPECT_EQ(sets,
              (std::vector<Browser::Results>{{service("a")}, {service("a"), service("b")}, {}}));
    EXPECT_EQ(states, States{Browser::State::Ready});
}

TEST_F(BrowserTest, deliversNothingWhileTheEngineIsAway)
{
    start();
    tell({Update::State::Ready, {}, {service("a")}});
    tell({Update::State::Waiting, DnsSdError::EngineUnavailable, {}});
    tell({Update::State::Ready, {}, {service("a")}});
    dispatch.runAll();
    EXPECT_EQ(sets, std::vector<Browser::Results>{{service("a")}});
    EXPECT_EQ(states,
              (States{Browser::State::Ready, Browser::State::Waiting, Browser::State::Ready}));
    EXPECT_EQ(errors[1], DnsSdError::EngineUnavailable);
    EXPECT_FALSE(errors[2]);
}

TEST_F(BrowserTest, failsForGood)
{
    start();
    tell({Update::State::Failed, DnsSdError::InvalidType, {}});
    dispatch.runAll();
    EXPECT_EQ(states, States{Browser::State::Failed});
    EXPECT_EQ(errors.front(), DnsSdError::InvalidType);
    EXPECT_TRUE(sets.empty());
}

TEST_F(BrowserTest, stillDeliversWhatWasOnTheQueueWhenItIsCancelled)
{
    start();
    tell({Update::State::Ready, {}, {service("a")}});
    browser->cancel();
    browser->cancel();
    EXPECT_TRUE(dnsSd.browses().empty());
    dispatch.runAll();
    EXPECT_EQ(sets.size(), 1U);
    EXPECT_EQ(states, (States{Browser::State::Ready, Browser::State::Cancelled}));
}

TEST_F(BrowserTest, isSilentAfterTheCancelledReport)
{
    start();
    const FakeDnsSd::Browse browse = dnsSd.browses().front();
    browser->cancel();
    dispatch.runAll();
    browse.tell({Update::State::Ready, {}, {service("late")}});
    dispatch.runAll();
    EXPECT_TRUE(sets.empty());
    EXPECT_EQ(states, States{Browser::State::Cancelled});
}

TEST_F(BrowserTest, isCancelledWithoutAReportWhenItIsDropped)
{
    start();
    tell({Update::State::Ready, {}, {service("a")}});
    browser = nullptr;
    EXPECT_TRUE(dnsSd.browses().empty());
    dispatch.runAll();
    EXPECT_EQ(sets.size(), 1U);
    EXPECT_EQ(states, States{Browser::State::Ready});
}

TEST_F(BrowserTest, neverReportsInsideACall)
{
    start();
    browser->cancel();
    EXPECT_TRUE(states.empty());
}

TEST_F(BrowserTest, doesNotBrowseWhenItWasCancelledBefore)
{
    browser->cancel();
    start();
    EXPECT_TRUE(dnsSd.browses().empty());
    dispatch.runAll();
    EXPECT_EQ(states, States{Browser::State::Cancelled});
}

TEST_F(BrowserTest, mayBeDroppedByItsOwnHandler)
{
    browser->setResultsChangedHandler([this](const Browser::Results& results) {
        sets.push_back(results);
        browser = nullptr;
    });
    start();
    tell({Update::State::Ready, {}, {service("a")}});
    dispatch.runAll();
    EXPECT_EQ(sets.size(), 1U);
    EXPECT_TRUE(dnsSd.browses().empty());
}

TEST_F(BrowserTest, needsNoHandlers)
{
    const auto bare = makeBrowser(dnsSd, "_smb._tcp");
    bare->start(queue);
    tell({Update::State::Ready, {}, {service("a")}});
    bare->cancel();
    dispatch.runAll();
    EXPECT_TRUE(sets.empty());
}

} // namespace quillbox
