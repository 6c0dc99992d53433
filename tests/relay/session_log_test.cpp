#include "relay/finder_relay.h"
#include "tests/fakes/fake_dispatch.h"
#include "tests/fakes/fake_network.h"
#include "tests/fakes/recording_log.h"
#include "tests/relay/peers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillbox {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

const std::error_code kUnreachable = std::make_error_code(std::errc::host_unreachable);
const std::error_code kDown = std::make_error_code(std::errc::network_down);

/// A relay with a log.
class SessionLogTest : public testing::Test {
protected:
    ~SessionLogTest() override
    {
        relay->stop();
        dispatch.runAll();
    }

    void start()
    {
        relay->start(kPhone, "a phone", "Quillbox Office");
        dispatch.runAll();
    }

    void open()
    {
        start();
        browser = network.makeAcceptedConnection();
        network.listeners.back()->accept(browser);
        dispatch.runAll();
        phone = network.connections.back();
        log.lines.clear();
    }

    void connect()
    {
        phone->report(Connection::State::Ready);
        dispatch.runAll();
        log.lines.clear();
    }

    void pass(FakeConnection& from, FakeConnection& to, std::string_view bytes)
    {
        from.deliver(bytes);
        dispatch.runAll();
        to.completeSend();
        dispatch.runAll();
    }

    FakeDispatch dispatch;
    FakeNetwork network;
    RecordingLog log;
    std::shared_ptr<FinderRelay> relay =
        FinderRelay::make(dispatch, network, log, "org.quillbox.Helper");
    std::shared_ptr<FakeConnection> browser;
    std::shared_ptr<FakeConnection> phone;
};

TEST_F(SessionLogTest, beginsWithTheRelay)
{
    log.time += 1min;
    start();
    log.time += 950ms;
    network.listeners.back()->report(Listener::State::Waiting, kDown);
    network.listeners.back()->report(Listener::State::Ready);
    dispatch.runAll();
    log.time += 2s;
    relay->stop();
    dispatch.runAll();
    EXPECT_THAT(
        log.lines,
        ElementsAre(R"(relay: "Quillbox Office": starting)",
                    R"(relay: "Quillbox Office": not advertised at present: )" + kDown.message(),
                    R"(relay: "Quillbox Office": visible after 950 ms)",
                    R"(relay: "Quillbox Office": stopping after 2.9 s; sessions: 0)"));
}

TEST_F(SessionLogTest, tellsWhyARelayDoesNotStart)
{
    network.listenerError = kDown;
    start();
    EXPECT_THAT(log.lines, ElementsAre(R"(relay: "Quillbox Office": starting)",
                                       R"(relay: "Quillbox Office": cannot open a listening port: )"
                                           + kDown.message()));
}

TEST_F(SessionLogTest, tellsWhyARelayFails)
{
    start();
    log.lines.clear();
    network.listeners.back()->report(Listener::State::Failed, kDown);
    dispatch.runAll();
    EXPECT_THAT(log.lines,
                ElementsAre(R"(relay: "Quillbox Office": failed: )" + kDown.message(),
                            R"(relay: "Quillbox Office": stopping after 0 ms; sessions: 0)"));
}

TEST_F(SessionLogTest, tellsWhatASessionWaitsForAndSinceWhenItIsConnected)
{
    open();
    phone->report(Connection::State::Preparing);
    phone->report(Connection::State::Waiting, kUnreachable);
    dispatch.runAll();
    log.time += 3500ms;
    phone->report(Connection::State::Ready);
    dispatch.runAll();
    const std::string session = R"(connection: session 1 of "Quillbox Office": )";
    EXPECT_THAT(log.lines, ElementsAre(session + "connecting to the phone",
                                       session + "waiting for the phone: " + kUnreachable.message(),
                                       session + "connected to the phone after 3.5 s"));
}

TEST_F(SessionLogTest, tellsNothingOfTheFileManagersStates)
{
    open();
    browser->report(Connection::State::Preparing);
    browser->report(Connection::State::Ready);
    dispatch.runAll();
    EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(SessionLogTest, tellsTheFirstCauseOfAnEnd)
{
    open();
    connect();
    browser->deliver("the last", true);
    dispatch.runAll();
    phone->completeSend(kUnreachable);
    dispatch.runAll();
    ASSERT_EQ(log.lines.size(), 1U);
    EXPECT_THAT(log.lines.front(), testing::HasSubstr("the file manager closed the connection"));
}

TEST_F(SessionLogTest, numbersSessions)
{
    start();
    log.lines.clear();
    for (int count = 0; count < 2; ++count)
        network.listeners.back()->accept(network.makeAcceptedConnection());
    dispatch.runAll();
    EXPECT_THAT(
        log.lines,
        ElementsAre(
            R"(connection: session 1 of "Quillbox Office": the file manager has connected)",
            R"(connection: session 2 of "Quillbox Office": the file manager has connected)"));
}

TEST_F(SessionLogTest, tellsWhatWasCarriedAndThatTheFileBrowserClosedIt)
{
    open();
    connect();
    pass(*browser, *phone, "question");
    pass(*phone, *browser, "a longer answer");
    pass(*browser, *phone, "?");
    log.time += 65s;
    browser->deliverNothing(true);
    dispatch.runAll();
    EXPECT_THAT(log.lines,
                ElementsAre(R"(connection: session 1 of "Quillbox Office": ended after 1 min 5 s: )"
                            "the file manager closed the connection; "
                            "9 bytes to the phone, 15 bytes from the phone"));
}

TEST_F(SessionLogTest, tellsThatThePhoneClosedItBehindItsLastBytes)
{
    open();
    connect();
    phone->deliver("bye", true);
    dispatch.runAll();
    browser->completeSend();
    dispatch.runAll();
    EXPECT_THAT(log.lines,
                ElementsAre(R"(connection: session 1 of "Quillbox Office": ended after 0 ms: )"
                            "the phone closed the connection; "
                            "0 bytes to the phone, 3 bytes from the phone"));
}

TEST_F(SessionLogTest, tellsTheErrorOfTheSideThatFailed)
{
    for (const bool isOfPhone : {true, false}) {
        open();
        connect();
        (isOfPhone ? phone : browser)->deliverNothing(false, kReset);
        dispatch.runAll();
        ASSERT_EQ(log.lines.size(), 1U);
        EXPECT_THAT(log.lines[0],
                    testing::HasSubstr((isOfPhone ? ": connection to the phone failed: "
                                                  : ": connection to the file manager failed: ")
                                       + kReset.message() + "; 0 bytes"));
    }
}

TEST_F(SessionLogTest, tellsTheErrorOfASend)
{
    open();
    connect();
    browser->deliver("question");
    dispatch.runAll();
    phone->completeSend(kReset);
    dispatch.runAll();
    ASSERT_EQ(log.lines.size(), 1U);
    EXPECT_THAT(log.lines[0], testing::HasSubstr(": connection to the phone failed: "
                                                 + kReset.message() + "; 8 bytes to the phone"));
}

TEST_F(SessionLogTest, tellsWhyThePhoneCannotBeReached)
{
    open();
    phone->report(Connection::State::Failed, std::make_error_code(std::errc::connection_refused));
    dispatch.runAll();
    ASSERT_EQ(log.lines.size(), 1U);
    EXPECT_THAT(log.lines[0],
                testing::HasSubstr(": connection to the phone failed: Connection refused; 0"));
}

TEST_F(SessionLogTest, tellsThatTheRelayStopped)
{
    open();
    connect();
    relay->stop();
    dispatch.runAll();
    EXPECT_THAT(log.lines,
                ElementsAre(R"(relay: "Quillbox Office": stopping after 0 ms; sessions: 1)",
                            R"(connection: session 1 of "Quillbox Office": ended after 0 ms: )"
                            "the relay stopped; 0 bytes to the phone, 0 bytes from the phone"));
}

TEST_F(SessionLogTest, doesNotTouchConnectionsWhileNobodyListens)
{
    log.isTelling = false;
    open();
    connect();
    EXPECT_TRUE(browser->isReceiving);
    pass(*browser, *phone, "question");
    browser->deliverNothing(true);
    dispatch.runAll();
    EXPECT_THAT(log.lines, IsEmpty());
    EXPECT_EQ(log.sessions, 0U) << "a session was numbered";
}

} // namespace
} // namespace quillbox
