#include "relay/relay_session.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_network.h"
#include "tests/fakes/recording_log.h"
#include "tests/relay/peers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillbox {
namespace {

using State = Connection::State;
using testing::ElementsAre;
using testing::IsEmpty;

class RelaySessionTest : public testing::Test {
protected:
    RelaySessionTest()
    {
        incoming->name = "incoming";
        outgoing->name = "outgoing";
        incoming->log = &log;
        outgoing->log = &log;
        session->onEnd = [this] { ++ends; };
    }

    void start() { session->start(queue); }

    /// Both sides ready, both directions reading.
    void startPumping()
    {
        start();
        incoming->report(State::Ready);
        outgoing->report(State::Ready);
        dispatch.runAll();
        log.clear();
    }

    FakeDispatch dispatch;
    std::shared_ptr<DispatchQueue> queue =
        dispatch.makeQueue("relay", QualityOfService::UserInitiated);
    FakeNetwork network;
    std::shared_ptr<FakeConnection> incoming = network.makeAcceptedConnection();
    std::shared_ptr<FakeConnection> outgoing = network.makeAcceptedConnection();
    RecordingLog lines;
    std::shared_ptr<RelaySession> session =
        std::make_shared<RelaySession>(incoming, outgoing, lines, "Quillbox Office");
    std::vector<std::string> log;
    int ends = 0;
};

TEST_F(RelaySessionTest, installsBothHandlersBeforeItStartsIncomingThenOutgoing)
{
    start();
    EXPECT_THAT(log, ElementsAre("incoming.setStateUpdateHandler", "outgoing.setStateUpdateHandler",
                                 "incoming.start", "outgoing.start"));
    EXPECT_EQ(incoming->queue, queue);
    EXPECT_EQ(outgoing->queue, queue);
}

TEST_F(RelaySessionTest, readsNothingWhenOnlyTheFileBrowserIsReady)
{
    start();
    incoming->report(State::Ready);
    outgoing->report(State::Preparing);
    dispatch.runAll();
    EXPECT_EQ(incoming->receives, 0);
    EXPECT_EQ(outgoing->receives, 0);
}

TEST_F(RelaySessionTest, readsBothSidesIncomingFirstOnceThePhoneIsReady)
{
    start();
    log.clear();
    outgoing->report(State::Ready);
    dispatch.runAll();
    EXPECT_THAT(log, ElementsAre("incoming.receive", "outgoing.receive"));
    EXPECT_EQ(incoming->minimum, 1U);
    EXPECT_EQ(incoming->maximum, 1048576U);
    EXPECT_EQ(outgoing->minimum, 1U);
    EXPECT_EQ(outgoing->maximum, 1048576U);
}

TEST_F(RelaySessionTest, staysOpenAndReadsNothingWhileThePhoneIsUnreachable)
{
    start();
    incoming->report(State::Ready);
    outgoing->report(State::Waiting, std::make_error_code(std::errc::host_unreachable));
    dispatch.advance(std::chrono::hours(1));
    EXPECT_EQ(incoming->receives, 0);
    EXPECT_EQ(incoming->cancels + outgoing->cancels, 0);
    EXPECT_EQ(ends, 0);
}

TEST_F(RelaySessionTest, cancelsTheWaitingPhoneWhenTheFileBrowserFails)
{
    start();
    outgoing->report(State::Waiting, std::make_error_code(std::errc::host_unreachable));
    incoming->report(State::Failed, kReset);
    dispatch.runAll();
    EXPECT_EQ(outgoing->cancels, 1);
    EXPECT_EQ(incoming->cancels, 1);
    EXPECT_EQ(ends, 1);
}

TEST_F(RelaySessionTest, endsOnceWhenThePhoneRefuses)
{
    start();
    incoming->report(State::Ready);
    log.clear();
    outgoing->report(State::Failed, std::make_error_code(std::errc::connection_refused));
    dispatch.runAll();
    EXPECT_THAT(log, ElementsAre("incoming.cancel", "outgoing.cancel"));
    EXPECT_EQ(ends, 1);
    EXPECT_TRUE(session->isFinished());
}

TEST_F(RelaySessionTest, endsWhenTheFileBrowsersSideIsCancelled)
{
    start();
    incoming->report(State::Cancelled);
    dispatch.runAll();
    EXPECT_EQ(incoming->cancels, 1);
    EXPECT_EQ(outgoing->cancels, 1);
    EXPECT_EQ(ends, 1);
}

TEST_F(RelaySessionTest, endsWhenThePhonesSideIsCancelled)
{
    start();
    outgoing->report(State::Cancelled);
    dispatch.runAll();
    EXPECT_EQ(incoming->cancels, 1);
    EXPECT_EQ(outgoing->cancels, 1);
    EXPECT_EQ(ends, 1);
}

TEST_F(RelaySessionTest, ignoresEveryOtherState)
{
    start();
    log.clear();
    for (const State state : {State::Setup, State::Preparing, State::Waiting}) {
        incoming->report(state);
        outgoing->report(state);
    }
    incoming->report(State::Ready);
    dispatch.runAll();
    EXPECT_THAT(log, IsEmpty());
    EXPECT_EQ(ends, 0);
}

TEST_F(RelaySessionTest, forwardsBytesBothWaysInOrder)
{
    startPumping();
    incoming->deliver("one");
    outgoing->deliver("eins");
    dispatch.runAll();
    outgoing->completeSend();
    incoming->completeSend();
    dispatch.runAll();
    incoming->deliver("two");
    outgoing->deliver("zwei");
    dispatch.runAll();
    EXPECT_THAT(outgoing->sent, ElementsAre("one", "two"));
    EXPECT_THAT(incoming->sent, ElementsAre("eins", "zwei"));
}

TEST_F(RelaySessionTest, readsAgainOnlyAfterTheSinkTookTheChunk)
{
    startPumping();
    incoming->deliver("chunk");
    dispatch.runAll();
    EXPECT_FALSE(incoming->isReceiving);
    EXPECT_TRUE(outgoing->isSending);
    outgoing->completeSend();
    dispatch.runAll();
    EXPECT_TRUE(incoming->isReceiving);
    EXPECT_EQ(incoming->receives, 2);
}

TEST_F(RelaySessionTest, letsOneDirectionFlowWhileTheOtherIsStalled)
{
    startPumping();
    incoming->deliver("stalled");
    dispatch.runAll();
    for (int round = 0; round < 3; ++round) {
        outgoing->deliver("answer");
        dispatch.runAll();
        incoming->completeSend();
        dispatch.runAll();
    }
    EXPECT_THAT(incoming->sent, ElementsAre("answer", "answer", "answer"));
    EXPECT_EQ(incoming->receives, 1);
}

TEST_F(RelaySessionTest, sendsTheFinalChunkBeforeItCancelsBothSides)
{
    startPumping();
    outgoing->deliver("last words", true);
    dispatch.runAll();
    EXPECT_THAT(incoming->sent, ElementsAre("last words"));
    EXPECT_EQ(incoming->cancels + outgoing->cancels, 0);
    EXPECT_EQ(ends, 0);
    incoming->completeSend();
    dispatch.runAll();
    EXPECT_EQ(incoming->cancels, 1);
    EXPECT_EQ(outgoing->cancels, 1);
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(outgoing->receives, 1);
}

TEST_F(RelaySessionTest, armsTheReceiveAgainAfterNoDataAndNoEnd)
{
    startPumping();
    incoming->deliverNothing(false);
    outgoing->deliver("", false);
    dispatch.runAll();
    EXPECT_EQ(incoming->receives, 2);
    EXPECT_EQ(outgoing->receives, 2);
    EXPECT_THAT(incoming->sent, IsEmpty());
    EXPECT_THAT(outgoing->sent, IsEmpty());
    EXPECT_EQ(ends, 0);
}

TEST_F(RelaySessionTest, finishesWithoutSendingOnEmptyDataAndTheEnd)
{
    startPumping();
    incoming->deliver("", true);
    dispatch.runAll();
    EXPECT_THAT(outgoing->sent, IsEmpty());
    EXPECT_EQ(ends, 1);
}

TEST_F(RelaySessionTest, finishesWithoutSendingOnNoDataAndTheEnd)
{
    startPumping();
    outgoing->deliverNothing(true);
    dispatch.runAll();
    EXPECT_THAT(incoming->sent, IsEmpty());
    EXPECT_EQ(ends, 1);
}

TEST_F(RelaySessionTest, dropsContentThatComesWithAnError)
{
    startPumping();
    incoming->deliver("half", false, kReset);
    dispatch.runAll();
    EXPECT_THAT(outgoing->sent, IsEmpty());
    EXPECT_EQ(ends, 1);
}

TEST_F(RelaySessionTest, endsWhenASendFails)
{
    startPumping();
    incoming->deliver("chunk");
    dispatch.runAll();
    outgoing->completeSend(kReset);
    dispatch.runAll();
    EXPECT_EQ(incoming->receives, 1);
    EXPECT_EQ(incoming->cancels, 1);
    EXPECT_EQ(outgoing->cancels, 1);
    EXPECT_EQ(ends, 1);
}

TEST_F(RelaySessionTest, armsNothingWhenACompletionArrivesAfterTheEnd)
{
    startPumping();
    // Both completions are queued before the session ends, but run after it.
    queue->async([this] { session->finish(); });
    incoming->deliver("late");
    outgoing->deliverNothing(false);
    dispatch.runAll();
    EXPECT_THAT(outgoing->sent, IsEmpty());
    EXPECT_EQ(incoming->receives, 1);
    EXPECT_EQ(outgoing->receives, 1);
    EXPECT_EQ(ends, 1);
}

TEST_F(RelaySessionTest, armsNothingWhenTheEndAbortsASend)
{
    startPumping();
    incoming->deliver("chunk");
    dispatch.runAll();
    session->finish(); // completes the pending send with an error
    dispatch.runAll();
    EXPECT_EQ(incoming->receives, 1);
    EXPECT_EQ(ends, 1);
}

TEST_F(RelaySessionTest, sendsNothingMoreWhenASendCompletesAfterTheEnd)
{
    startPumping();
    incoming->deliver("chunk");
    dispatch.runAll();
    // The send has succeeded before the session ends, but its completion runs after that.
    queue->async([this] { session->finish(); });
    outgoing->completeSend();
    dispatch.runAll();
    if (incoming->isReceiving)
        incoming->deliver("late");
    dispatch.runAll();
    EXPECT_THAT(outgoing->sent, ElementsAre("chunk"));
    EXPECT_EQ(incoming->cancels, 1);
    EXPECT_EQ(outgoing->cancels, 1);
    EXPECT_EQ(ends, 1);
}

TEST_F(RelaySessionTest, finishesOnce)
{
    startPumping();
    session->finish();
    session->finish();
    dispatch.runAll(); // both sides report that they were cancelled
    EXPECT_EQ(incoming->cancels, 1);
    EXPECT_EQ(outgoing->cancels, 1);
    EXPECT_EQ(ends, 1);
    EXPECT_FALSE(session->onEnd);
}

TEST_F(RelaySessionTest, receivesNothingMoreWhenASendSucceedsAfterTheEnd)
{
    startPumping();
    incoming->deliver("last");
    dispatch.runAll();
    const int receives = incoming->receives;
    // Its completion is queued before the session finishes.
    outgoing->completeSend();
    session->finish();
    dispatch.runAll();
    EXPECT_EQ(incoming->receives, receives);
    EXPECT_EQ(ends, 1);
}

TEST_F(RelaySessionTest, cancelsBothSidesBeforeItTellsItsOwner)
{
    startPumping();
    session->onEnd = [this] { log.emplace_back("onEnd"); };
    session->finish();
    EXPECT_THAT(log, ElementsAre("incoming.cancel", "outgoing.cancel", "onEnd"));
}

TEST_F(RelaySessionTest, isFinishedWhenItTellsItsOwner)
{
    bool wasFinished = false;
    session->onEnd = [&] { wasFinished = session->isFinished(); };
    session->finish();
    EXPECT_TRUE(wasFinished);
}

TEST_F(RelaySessionTest, stopsWhenItsOwnerDropsItWhileAReceiveIsPending)
{
    startPumping();
    session.reset();
    incoming->deliver("orphan");
    outgoing->deliverNothing(true);
    incoming->report(State::Failed, kReset);
    dispatch.runAll();
    EXPECT_THAT(outgoing->sent, IsEmpty());
    EXPECT_EQ(incoming->receives, 1);
    EXPECT_EQ(incoming->cancels + outgoing->cancels, 0);
    EXPECT_EQ(ends, 0);
}

TEST_F(RelaySessionTest, stopsWhenItsOwnerDropsItWhileASendIsPending)
{
    startPumping();
    incoming->deliver("chunk");
    dispatch.runAll();
    session.reset();
    outgoing->completeSend();
    dispatch.runAll();
    EXPECT_EQ(incoming->receives, 1);
}

TEST_F(RelaySessionTest, isHeldByNoHandlerOfItsOwn)
{
    startPumping();
    const std::weak_ptr<RelaySession> weak = session;
    session.reset();
    EXPECT_TRUE(weak.expired());
}

TEST_F(RelaySessionTest, keepsBothConnectionsInAPendingCompletion)
{
    startPumping();
    const std::weak_ptr<FakeConnection> weakSink = outgoing;
    session.reset();
    outgoing.reset();
    // The pending receive of the incoming connection still owns the outgoing one.
    EXPECT_FALSE(weakSink.expired());
    incoming->deliverNothing(true);
    dispatch.runAll();
    EXPECT_EQ(incoming->receives, 1);
}

TEST_F(RelaySessionTest, endsWithoutAnOwnerToTell)
{
    session->onEnd = nullptr;
    startPumping();
    incoming->deliverNothing(true);
    dispatch.runAll();
    EXPECT_TRUE(session->isFinished());
}

} // namespace
} // namespace quillbox
