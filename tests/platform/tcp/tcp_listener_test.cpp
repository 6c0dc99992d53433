#include "platform/tcp/socket_calls.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/tcp/refused_calls.h"
#include "tests/platform/tcp/tcp_harness.h"

#include <cerrno>

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/syscall.h>

namespace quillbox {

namespace {

using ListenerState = Listener::State;
using Registration = DnsSd::RegistrationUpdate;

Registration update(Registration::State state, std::error_code error = {},
                    const std::string& name = "Test")
{
    return {.state = state, .error = error, .name = name};
}

/// Whether a connection to `port` on 127.0.0.1 succeeds.
bool accepts(std::uint16_t port)
{
    const Peer peer(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto address = ipv4Address("127.0.0.1", port);
    return ::connect(peer.descriptor(), address.data(), address.size()) == 0;
}

/// A listener with a service, on its own queue.
struct Stage {
    Stage()
    {
        std::error_code error;
        listener =
            harness.network->makeListener({.allowLocalEndpointReuse = true}, kAnyPort, error);
        listener->setService({.name = harness.serviceName, .type = "_smb._tcp"});
        listener->setStateUpdateHandler([log = log](ListenerState state, std::error_code failure) {
            log->note(state, failure);
        });
    }

    void run(const std::function<void()>& work)
    {
        std::promise<void> done;
        queue->async([&] {
            work();
            done.set_value();
        });
        done.get_future().wait();
    }

    void start()
    {
        run([this] { listener->start(queue); });
        port = registration().request.port;
    }

    FakeDnsSd::Registration registration() const { return harness.dnsSd.registrations().at(0); }

    /// Another listener, with its port, which is known before it starts. The port is one that was
    /// free a moment ago; another program may have taken it since.
    std::shared_ptr<Listener> listenAtAKnownPort(std::uint16_t& itsPort) const
    {
        std::shared_ptr<Listener> other;
        for (int attempt = 0; !other && attempt < 20; ++attempt) {
            std::error_code error;
            itsPort = PeerListener().port();
            other =
                harness.network->makeListener({.allowLocalEndpointReuse = true}, itsPort, error);
        }
        return other;
    }

    void settle()
    {
        run([] {});
        run([] {});
    }

    Harness harness;
    std::shared_ptr<StateLog<ListenerState>> log = std::make_shared<StateLog<ListenerState>>();
    std::shared_ptr<DispatchQueue> queue = harness.makeQueue();
    std::shared_ptr<Listener> listener;
    std::uint16_t port = 0;
};

} // namespace

TEST(TcpListener, registersItsServiceAndItsPort)
{
    Stage stage;
    stage.start();
    const auto request = stage.registration().request;
    EXPECT_EQ(request.service.name, stage.harness.serviceName);
    EXPECT_EQ(request.service.type, "_smb._tcp");
    EXPECT_NE(request.port, 0);
    EXPECT_TRUE(accepts(stage.port));
}

TEST(TcpListener, isReadyOnceItIsAdvertised)
{
    Stage stage;
    stage.start();
    const auto away = std::make_error_code(std::errc::not_connected);
    stage.registration().tell(update(Registration::State::Waiting, away));
    ASSERT_TRUE(stage.log->waitFor(ListenerState::Waiting));
    EXPECT_EQ(stage.log->errorOf(ListenerState::Waiting), away);
    stage.registration().tell(update(Registration::State::Ready));
    ASSERT_TRUE(stage.log->waitFor(ListenerState::Ready));
    EXPECT_EQ(stage.log->states(), (std::vector{ListenerState::Waiting, ListenerState::Ready}));
}

TEST(TcpListener, staysReadyWhenItIsRenamed)
{
    Stage stage;
    stage.start();
    stage.registration().tell(update(Registration::State::Ready));
    stage.registration().tell(update(Registration::State::Ready, {}, "Test #2"));
    stage.settle();
    EXPECT_EQ(stage.log->states(), std::vector{ListenerState::Ready});
}

TEST(TcpListener, isReadyAgainAfterItHasWaited)
{
    Stage stage;
    stage.start();
    const auto away = std::make_error_code(std::errc::not_connected);
    stage.registration().tell(update(Registration::State::Ready));
    stage.registration().tell(update(Registration::State::Waiting, away));
    stage.registration().tell(update(Registration::State::Ready));
    stage.settle();
    EXPECT_EQ(stage.log->states(),
              (std::vector{ListenerState::Ready, ListenerState::Waiting, ListenerState::Ready}));
    EXPECT_TRUE(accepts(stage.port));
}

TEST(TcpListener, closesItsPortWhenItsServiceCanNeverBeRegistered)
{
    Stage stage;
    stage.start();
    const auto invalid = std::make_error_code(std::errc::invalid_argument);
    stage.registration().tell(update(Registration::State::Failed, invalid));
    ASSERT_TRUE(stage.log->waitFor(ListenerState::Failed));
    EXPECT_EQ(stage.log->errorOf(ListenerState::Failed), invalid);
    EXPECT_FALSE(accepts(stage.port));
    stage.run([&stage] { stage.listener->cancel(); });
    EXPECT_TRUE(stage.log->waitFor(ListenerState::Cancelled));
}

TEST(TcpListener, reportsNothingMoreOfItsRegistrationAfterThatHasFailed)
{
    Stage stage;
    stage.start();
    const auto invalid = std::make_error_code(std::errc::invalid_argument);
    stage.registration().tell(update(Registration::State::Failed, invalid));
    // An update that was under way when the registration ended.
    stage.registration().tell(update(Registration::State::Ready));
    stage.settle();
    EXPECT_EQ(stage.log->states(), std::vector{ListenerState::Failed});
}

TEST(TcpListener, isReadyAtOnceWithoutAService)
{
    Harness harness;
    std::error_code error;
    const auto listener = harness.network->makeListener({}, kAnyPort, error);
    StateLog<ListenerState> log;
    listener->setStateUpdateHandler(
        [&log](ListenerState state, std::error_code failure) { log.note(state, failure); });
    const auto queue = harness.makeQueue();
    queue->async([&] { listener->start(queue); });
    EXPECT_TRUE(log.waitFor(ListenerState::Ready));
    EXPECT_EQ(harness.dnsSd.count(), 0U);
}

TEST(TcpListener, closesItsPortAndItsRegistrationWhenItIsCancelled)
{
    Stage stage;
    stage.start();
    stage.registration().tell(update(Registration::State::Ready));
    ASSERT_TRUE(stage.log->waitFor(ListenerState::Ready));
    stage.run([&stage] {
        stage.listener->cancel();
        stage.listener->cancel();
    });
    EXPECT_TRUE(stage.registration().isEnded());
    EXPECT_FALSE(accepts(stage.port));
    stage.settle();
    EXPECT_EQ(stage.log->states(), (std::vector{ListenerState::Ready, ListenerState::Cancelled}));
}

TEST(TcpListener, isCancelledSilentlyWhenItIsDropped)
{
    Stage stage;
    stage.start();
    stage.listener.reset();
    stage.settle();
    EXPECT_TRUE(stage.registration().isEnded());
    EXPECT_FALSE(accepts(stage.port));
    EXPECT_TRUE(stage.log->states().empty());
}

TEST(TcpListener, mayBeDroppedByItsOwnHandlers)
{
    Stage stage;
    std::promise<void> dropped;
    stage.listener->setNewConnectionHandler([&](const std::shared_ptr<Connection>&) {
        stage.listener.reset();
        dropped.set_value();
    });
    stage.start();
    const auto first = connectPeer(stage.port);
    dropped.get_future().wait();
    stage.settle();
    EXPECT_FALSE(accepts(stage.port));
}

TEST(TcpListener, isFreedThoughItsHandlerHoldsItOnceItIsCancelled)
{
    Stage stage;
    const std::weak_ptr<Listener> watched = stage.listener;
    stage.listener->setNewConnectionHandler(
        [held = stage.listener](const std::shared_ptr<Connection>&) {});
    stage.start();
    stage.run([&stage] { stage.listener->cancel(); });
    stage.listener.reset();
    stage.settle();
    EXPECT_TRUE(watched.expired());
}

TEST(TcpListener, givesItsPortFreeForConnectionsWhenItCloses)
{
    Stage stage;
    stage.start();
    stage.harness.dnsSd.answerAll(
        found({{.address = ipv4Address("127.0.0.1", stage.port), .interfaceIndex = 1}}));
    auto before = stage.harness.dial(kPhone);
    ASSERT_TRUE(before.log->waitFor(Connection::State::Waiting)) << "its own port is not dialled";
    stage.run([&stage] { stage.listener->cancel(); });
    auto after = stage.harness.dial(kPhone);
    ASSERT_TRUE(after.log->waitFor(Connection::State::Failed)) << "dialled, and refused";
    EXPECT_EQ(after.log->errorOf(Connection::State::Failed), std::errc::connection_refused);
}

TEST(TcpListener, acceptsConnectionsOfBothFamilies)
{
    Harness harness;
    harness.listen();
    const auto first = connectPeer(harness.listeningPort());
    EXPECT_TRUE(harness.waitForAccepted(1));
    const Peer second(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (second.descriptor() < 0)
        GTEST_SKIP() << "no IPv6 here";
    const auto address = ipv6Address("::1", 0, harness.listeningPort());
    if (::connect(second.descriptor(), address.data(), address.size()) != 0)
        GTEST_SKIP() << "no IPv6 here";
    EXPECT_TRUE(harness.waitForAccepted(2));
}

TEST(TcpListener, keepsConnectionsThatCameBeforeItsStart)
{
    Stage stage;
    std::uint16_t port = kAnyPort;
    const auto early = stage.listenAtAKnownPort(port);
    ASSERT_TRUE(early);
    std::promise<void> accepted;
    early->setNewConnectionHandler(
        [&accepted](const std::shared_ptr<Connection>&) { accepted.set_value(); });
    const auto peer = connectPeer(port);
    stage.run([&] { early->start(stage.queue); });
    EXPECT_EQ(accepted.get_future().wait_for(kPatience), std::future_status::ready);
}

TEST(TcpListener, survivesConnectionsThatAreResetBeforeTheyAreAccepted)
{
    Harness harness;
    harness.listen();
    for (int count = 0; count < 20; ++count)
        connectPeer(harness.listeningPort()).reset();
    const auto peer = connectPeer(harness.listeningPort());
    ASSERT_TRUE(peer.send("x"));
    // Some of the others may have been accepted before they were reset.
    std::string received;
    while (received.empty()) {
        Subject subject(harness.nextAccepted(), harness.makeQueue());
        subject.start();
        received = take(subject.receive()).bytes;
    }
    EXPECT_EQ(received, "x");
}

TEST(TcpListener, goesOnAtOnceAfterConnectionsThatWereReset)
{
    Stage stage;
    std::uint16_t port = kAnyPort;
    const auto early = stage.listenAtAKnownPort(port);
    ASSERT_TRUE(early);
    int accepted = 0;
    std::promise<void> isAccepted;
    early->setNewConnectionHandler([&](const std::shared_ptr<Connection>&) {
        if (++accepted == 1)
            isAccepted.set_value();
    });
    for (int count = 0; count < 3; ++count)
        connectPeer(port).reset();
    const auto peer = connectPeer(port);
    testing::internal::CaptureStderr();
    stage.run([&] { early->start(stage.queue); });
    EXPECT_EQ(isAccepted.get_future().wait_for(kPatience), std::future_status::ready);
    stage.run([&] { EXPECT_EQ(accepted, 1); });
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "no shortage";
}

TEST(TcpListener, leavesTimeToOthersAfterEachFourConnections)
{
    Stage stage;
    std::uint16_t port = kAnyPort;
    const auto early = stage.listenAtAKnownPort(port);
    ASSERT_TRUE(early);
    const auto other = stage.harness.makeQueue();
    std::string events;
    std::promise<void> done;
    early->setNewConnectionHandler([&](const std::shared_ptr<Connection>&) {
        if (events.empty())
            other->async([&events] { events += " other "; });
        events += "c";
        if (events == "cccc other cc" || events.size() > 12)
            done.set_value();
    });
    std::vector<Peer> peers;
    for (int count = 0; count < 6; ++count)
        peers.push_back(connectPeer(port));
    stage.run([&] { early->start(stage.queue); });
    EXPECT_EQ(done.get_future().wait_for(kPatience), std::future_status::ready) << events;
    stage.run([&] {
        EXPECT_EQ(events, "cccc other cc");
        early->cancel();
    });
}

TEST(TcpListener, doesNothingMoreOnceItIsCancelled)
{
    Stage stage;
    std::uint16_t port = kAnyPort;
    const auto early = stage.listenAtAKnownPort(port);
    ASSERT_TRUE(early);
    stage.run([&] {
        early->start(stage.queue);
        early->cancel();
    });
    stage.settle();
    const auto before = processorTime();
    std::this_thread::sleep_for(kWatch);
    EXPECT_LT(processorTime() - before, kWatch / 4);
}

TEST(TcpListener, goesOnWhenTheFirewallRefusesAConnection)
{
    Stage stage;
    std::uint16_t port = kAnyPort;
    const auto early = stage.listenAtAKnownPort(port);
    ASSERT_TRUE(early);
    const auto peer = connectPeer(port);
    bool isRefused = false;
    stage.run([&isRefused] { isRefused = refuseCalls(SYS_accept4, EPERM); });
    if (!isRefused)
        GTEST_SKIP() << "no permission to filter system calls";
    testing::internal::CaptureStderr();
    stage.run([&] { early->start(stage.queue); });
    stage.settle();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "no shortage";
    stage.run([&] { early->cancel(); });
}

TEST(TcpListener, saysWhyAPortCannotBeHad)
{
    Harness harness;
    const PeerListener taken;
    std::error_code error;
    EXPECT_EQ(harness.network->makeListener({}, taken.port(), error), nullptr);
    EXPECT_EQ(error, std::errc::address_in_use);
}

TEST(TcpListener, reusesAPortOnlyWhenThatIsAllowed)
{
    Stage stage;
    // The side that closes first keeps the port in TIME_WAIT for a minute.
    stage.listener->setNewConnectionHandler([](const std::shared_ptr<Connection>&) {});
    stage.start();
    auto peer = connectPeer(stage.port);
    bool isClean = false;
    EXPECT_TRUE(peer.receiveAll(isClean).empty());
    peer.close();
    stage.listener.reset();
    stage.settle();
    std::error_code error;
    EXPECT_EQ(stage.harness.network->makeListener({}, stage.port, error), nullptr);
    EXPECT_EQ(error, std::errc::address_in_use);
    EXPECT_NE(
        stage.harness.network->makeListener({.allowLocalEndpointReuse = true}, stage.port, error),
        nullptr);
    EXPECT_FALSE(error);
}

TEST(TcpListener, acceptsManyConnectionsAtOnce)
{
    Harness harness;
    harness.listen();
    std::vector<Peer> peers;
    constexpr std::size_t kCount = 300;
    for (std::size_t count = 0; count < kCount; ++count)
        peers.push_back(connectPeer(harness.listeningPort()));
    EXPECT_TRUE(harness.waitForAccepted(kCount));
}

} // namespace quillbox
