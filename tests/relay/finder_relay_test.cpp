#include "relay/finder_relay.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_network.h"
#include "tests/fakes/recording_log.h"
#include "tests/relay/peers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillbox {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::error_code kNoPorts = std::make_error_code(std::errc::address_not_available);
const std::error_code kNotPermitted = std::make_error_code(std::errc::operation_not_permitted);

class FinderRelayTest : public testing::Test {
protected:
    FinderRelayTest()
    {
        network.log = &log;
        watch();
    }

    void watch()
    {
        relay->statusChanged = [this](bool ready, const std::string& text) {
            reports.push_back((ready ? "ready: " : "not ready: ") + text);
        };
    }

    void start(const std::string& name = "Quillbox Office")
    {
        relay->start(kPhone, "a phone", name);
        dispatch.runAll();
    }

    FakeListener& listener() { return *network.listeners.back(); }

    std::shared_ptr<FakeConnection> accept()
    {
        auto connection = network.makeAcceptedConnection();
        listener().accept(connection);
        dispatch.runAll();
        return connection;
    }

    /// Whether bytes of the file browser reach the phone. Opens the phone's side.
    bool isRelaying(FakeConnection& incoming, FakeConnection& outgoing)
    {
        outgoing.report(Connection::State::Ready);
        dispatch.runAll();
        if (!incoming.isReceiving)
            return false;
        incoming.deliver("alive");
        dispatch.runAll();
        return outgoing.sent == std::vector<std::string>{"alive"};
    }

    FakeDispatch dispatch;
    FakeNetwork network;
    std::vector<std::string> log;
    RecordingLog story;
    std::vector<std::string> reports;
    std::shared_ptr<FinderRelay> relay =
        FinderRelay::make(dispatch, network, story, "org.quillbox.Helper");
};

TEST_F(FinderRelayTest, worksOnAQueueOfItsOwn)
{
    const auto other = FinderRelay::make(dispatch, network, story, "org.quillbox.Helper");
    ASSERT_EQ(dispatch.queueCount(), 2U);
    EXPECT_EQ(dispatch.queue(0)->label(), "org.quillbox.Helper.relay");
    EXPECT_EQ(dispatch.queue(0)->qualityOfService(), QualityOfService::UserInitiated);
    EXPECT_EQ(dispatch.queue(1)->label(), "org.quillbox.Helper.relay");
    EXPECT_NE(dispatch.queue(0), dispatch.queue(1));
}

TEST_F(FinderRelayTest, doesNothingInsideTheCallThatStartsIt)
{
    relay->start(kPhone, "a phone", "Quillbox Office");
    EXPECT_THAT(log, IsEmpty());
    dispatch.runAll();
    EXPECT_THAT(log, ElementsAre("listener.make", "listener.start Quillbox Office"));
}

TEST_F(FinderRelayTest, advertisesAFreePortAsSmbWithoutDomainOrTxtRecord)
{
    start();
    EXPECT_TRUE(listener().parameters.allowLocalEndpointReuse);
    EXPECT_EQ(listener().port, kAnyPort);
    EXPECT_EQ(listener().service,
              (ServiceRegistration{.name = "Quillbox Office", .type = "_smb._tcp"}));
    EXPECT_EQ(listener().queue, dispatch.queue(0));
    EXPECT_TRUE(listener().wasPrepared);
}

TEST_F(FinderRelayTest, reportsThatItIsVisibleOnceTheListenerIsReady)
{
    start();
    EXPECT_THAT(reports, IsEmpty());
    listener().report(Listener::State::Ready);
    dispatch.runAll();
    EXPECT_THAT(reports, ElementsAre("ready: Quillbox Office is visible in Finder"));
}

TEST_F(FinderRelayTest, reportsOnTheMainQueue)
{
    start();
    listener().report(Listener::State::Ready);
    dispatch.queue(0)->run();
    EXPECT_THAT(reports, IsEmpty());
    dispatch.main().run();
    EXPECT_EQ(reports.size(), 1U);
}

TEST_F(FinderRelayTest, reportsWhyTheListenerCannotBeMade)
{
    network.listenerError = kNoPorts;
    start();
    EXPECT_THAT(reports,
                ElementsAre("not ready: Could not start Finder service: " + kNoPorts.message()));
    EXPECT_THAT(network.listeners, IsEmpty());
}

TEST_F(FinderRelayTest, saysNothingWhileTheListenerWaits)
{
    start();
    listener().report(Listener::State::Setup);
    listener().report(Listener::State::Waiting, std::make_error_code(std::errc::network_down));
    dispatch.runAll();
    EXPECT_THAT(reports, IsEmpty());
    EXPECT_EQ(listener().cancels, 0);
}

TEST_F(FinderRelayTest, endsEverythingWithOneReportWhenTheListenerFails)
{
    start();
    listener().report(Listener::State::Ready);
    dispatch.runAll();
    const auto first = accept();
    const auto second = accept();
    reports.clear();
    listener().report(Listener::State::Failed, kNotPermitted);
    dispatch.runAll(); // including the listener's Cancelled report
    EXPECT_THAT(reports,
                ElementsAre("not ready: Finder service failed: " + kNotPermitted.message()));
    EXPECT_EQ(listener().cancels, 1);
    EXPECT_EQ(first->cancels, 1);
    EXPECT_EQ(second->cancels, 1);
    EXPECT_EQ(network.connections.at(0)->cancels, 1);
    EXPECT_EQ(network.connections.at(1)->cancels, 1);
}

TEST_F(FinderRelayTest, staysIdleAfterAFailureUntilItIsStartedAgain)
{
    start();
    listener().report(Listener::State::Failed, kNotPermitted);
    dispatch.advance(std::chrono::hours(1));
    EXPECT_EQ(network.listeners.size(), 1U);
    start();
    EXPECT_EQ(network.listeners.size(), 2U);
}

TEST_F(FinderRelayTest, cancelsTheFirstListenerBeforeItMakesTheSecond)
{
    start("Quillbox A");
    start("Quillbox B");
    EXPECT_THAT(log, ElementsAre("listener.make", "listener.start Quillbox A",
                                 "listener.cancel Quillbox A", "listener.make",
                                 "listener.start Quillbox B"));
}

TEST_F(FinderRelayTest, ignoresLateReportsOfAReplacedListener)
{
    start("Quillbox A");
    const auto replaced = network.listeners.front();
    relay->start(kPhone, "a phone", "Quillbox B");
    dispatch.queue(0)->runOne(); // the restart; queued after it:
    replaced->report(Listener::State::Ready);
    replaced->report(Listener::State::Failed, kNotPermitted);
    listener().report(Listener::State::Ready);
    dispatch.runAll();
    EXPECT_THAT(reports, ElementsAre("ready: Quillbox B is visible in Finder"));
    EXPECT_EQ(listener().cancels, 0);
}

TEST_F(FinderRelayTest, ignoresLateReportsAfterAStop)
{
    start();
    relay->stop();
    dispatch.queue(0)->runOne();
    listener().report(Listener::State::Ready);
    listener().report(Listener::State::Failed, kNotPermitted);
    dispatch.runAll();
    EXPECT_THAT(reports, IsEmpty());
    EXPECT_EQ(listener().cancels, 1);
}

TEST_F(FinderRelayTest, joinsAnAcceptedConnectionWithOneToTheTarget)
{
    start();
    const auto incoming = accept();
    ASSERT_EQ(network.connections.size(), 1U);
    const auto outgoing = network.connections.front();
    EXPECT_EQ(outgoing->endpoint, kPhone);
    EXPECT_FALSE(outgoing->parameters->allowLocalEndpointReuse);
    EXPECT_EQ(outgoing->parameters->client.lock(), incoming);
    EXPECT_EQ(incoming->queue, dispatch.queue(0));
    EXPECT_EQ(outgoing->queue, dispatch.queue(0));

    outgoing->report(Connection::State::Ready);
    dispatch.runAll();
    incoming->deliver("negotiate");
    dispatch.runAll();
    EXPECT_THAT(outgoing->sent, ElementsAre("negotiate"));
}

TEST_F(FinderRelayTest, servesManyConnectionsAtOnce)
{
    start();
    std::vector<std::shared_ptr<FakeConnection>> accepted;
    for (int count = 0; count < 100; ++count)
        accepted.push_back(accept());
    ASSERT_EQ(network.connections.size(), 100U);
    for (std::size_t index = 0; index < accepted.size(); ++index) {
        EXPECT_TRUE(isRelaying(*accepted[index], *network.connections[index])) << index;
        EXPECT_EQ(accepted[index]->cancels + network.connections[index]->cancels, 0) << index;
    }
}

TEST_F(FinderRelayTest, cancelsEverySessionOnceAndReportsNothingWhenItStops)
{
    start();
    listener().report(Listener::State::Ready);
    dispatch.runAll();
    reports.clear();
    const auto first = accept();
    const auto second = accept();
    relay->stop();
    dispatch.runAll();
    for (const auto& connection :
         {first, second, network.connections.at(0), network.connections.at(1)})
        EXPECT_EQ(connection->cancels, 1);
    EXPECT_EQ(listener().cancels, 1);
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(FinderRelayTest, letsGoOfItsSessionsInTheVeryTurnOfTheStop)
{
    start();
    const auto incoming = accept();
    const std::weak_ptr<int> alive = network.connections.front()->alive;
    network.connections.clear();
    relay->stop();
    dispatch.queue(0)->runOne(); // the stop itself
    // The Cancelled reports of the listener and both connections, which own these objects. The
    // removal of the session, which its end has scheduled, is still pending.
    for (int report = 0; report < 3; ++report)
        dispatch.queue(0)->runOne();
    EXPECT_TRUE(alive.expired());
    EXPECT_EQ(incoming->cancels, 1);
}

TEST_F(FinderRelayTest, stopsThoughItsOwnerDropsItAtOnce)
{
    start();
    const auto incoming = accept();
    relay->stop();
    relay.reset();
    EXPECT_EQ(listener().cancels, 0);
    dispatch.runAll();
    EXPECT_EQ(listener().cancels, 1);
    EXPECT_EQ(incoming->cancels, 1);
}

TEST_F(FinderRelayTest, removesAnEndedSessionInALaterTurn)
{
    start();
    const auto incoming = accept();
    const std::weak_ptr<int> alive = network.connections.front()->alive;
    network.connections.clear();
    incoming->report(Connection::State::Failed, kNotPermitted);
    dispatch.queue(0)->runOne(); // ends the session
    EXPECT_EQ(incoming->cancels, 1);
    dispatch.queue(0)->runOne(); // both Cancelled reports, after which
    dispatch.queue(0)->runOne(); // only the table owns the outgoing connection
    EXPECT_FALSE(alive.expired());
    dispatch.queue(0)->runOne();
    EXPECT_TRUE(alive.expired());
}

TEST_F(FinderRelayTest, keepsTheOtherSessionsWhenOneEnds)
{
    start();
    const auto first = accept();
    const auto second = accept();
    first->report(Connection::State::Failed, kNotPermitted);
    dispatch.runAll();
    EXPECT_EQ(first->cancels, 1);
    EXPECT_EQ(second->cancels, 0);
    EXPECT_EQ(network.connections.at(1)->cancels, 0);
    EXPECT_TRUE(isRelaying(*second, *network.connections.at(1)));
}

TEST_F(FinderRelayTest, aStopRemovesNoSessionOfALaterStart)
{
    start();
    accept();
    relay->stop();
    relay->start(kPhone, "a phone", "Quillbox Office");
    dispatch.queue(0)->runTurn(); // stop and start; the removals of the stop are still pending
    const auto incoming = network.makeAcceptedConnection();
    listener().acceptAtOnce(incoming);
    dispatch.runAll(); // the removals, with the new session in the table
    EXPECT_EQ(incoming->cancels, 0);
    EXPECT_TRUE(isRelaying(*incoming, *network.connections.back()));
}

TEST_F(FinderRelayTest, cancelsAConnectionThatArrivesWhenItIsGone)
{
    start();
    const auto orphaned = network.listeners.back();
    relay.reset();
    const auto connection = network.makeAcceptedConnection();
    orphaned->accept(connection);
    dispatch.runAll();
    EXPECT_EQ(connection->cancels, 1);
    EXPECT_THAT(network.connections, IsEmpty());
}

TEST_F(FinderRelayTest, ignoresAListenerThatIsGoneWhenItsReportRuns)
{
    start();
    const std::weak_ptr<FakeListener> stopped = network.listeners.back();
    relay->stop(); // destroys the listener; queued after it:
    listener().report(Listener::State::Ready);
    listener().report(Listener::State::Failed, kNotPermitted);
    network.listeners.clear();
    dispatch.queue(0)->runOne();
    ASSERT_TRUE(stopped.expired());
    dispatch.runAll();
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(FinderRelayTest, dropsReportsSilentlyWhenNobodyListens)
{
    relay->statusChanged = nullptr;
    start();
    listener().report(Listener::State::Ready);
    EXPECT_NO_THROW(dispatch.runAll());
    watch();
    listener().report(Listener::State::Failed, kNotPermitted);
    dispatch.runAll();
    EXPECT_THAT(reports,
                ElementsAre("not ready: Finder service failed: " + kNotPermitted.message()));
}

TEST_F(FinderRelayTest, dropsReportsWhenItIsGone)
{
    start();
    listener().report(Listener::State::Ready);
    dispatch.queue(0)->run();
    relay.reset();
    dispatch.runAll();
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(FinderRelayTest, reportsToTheCallbackThatIsSetWhenTheReportIsDelivered)
{
    start();
    listener().report(Listener::State::Ready);
    dispatch.queue(0)->run();
    std::string heard;
    relay->statusChanged = [&](bool, const std::string& text) { heard = text; };
    dispatch.runAll();
    EXPECT_EQ(heard, "Quillbox Office is visible in Finder");
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(FinderRelayTest, mayBeDroppedFromItsOwnReport)
{
    relay->statusChanged = [this](bool, const std::string&) { relay.reset(); };
    start();
    listener().report(Listener::State::Ready);
    dispatch.runAll();
    EXPECT_EQ(relay, nullptr);
}

} // namespace
} // namespace quillbox
