#include "platform/tcp/own_ports.h"
#include "platform/tcp/socket_calls.h"
#include "platform/tcp/tcp_listener.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/netlink/network_namespace.h"
#include "tests/platform/tcp/tcp_backstage.h"

#include <fstream>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

const std::string kName = "Quillbox Office";

/// The program between its start and its end: a network, and a queue for its listeners.
class Program final {
public:
    explicit Program(Reach reach = Reach::Network)
    {
        if (reach != Reach::Network)
            harness.network =
                std::make_unique<TcpNetwork>(harness.pool, harness.dnsSd, harness.monitor, reach);
    }

    ~Program()
    {
        listeners_.clear();
        harness.pool.shutdown();
    }

    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    std::shared_ptr<Listener> make(const std::string& name, std::uint16_t wanted = kAnyPort)
    {
        std::error_code error;
        auto listener =
            harness.network->makeListener({.allowLocalEndpointReuse = true}, wanted, error);
        EXPECT_FALSE(error) << error.message();
        listener->setService({.name = name, .type = "_smb._tcp"});
        listener->setNewConnectionHandler([this](std::shared_ptr<Connection> connection) {
            accepted.push_back(std::move(connection));
            if (accepted.size() == 2)
                twoAreAccepted.set_value();
        });
        listeners_.push_back(listener);
        return listener;
    }

    /// Starts the listener; returns the port with which it is registered.
    std::uint16_t start(const std::shared_ptr<Listener>& listener)
    {
        const auto index = harness.dnsSd.registrations().size();
        onQueue([&] { listener->start(queue); });
        EXPECT_TRUE(harness.dnsSd.waitForCount(index + 1, kPatience));
        return harness.dnsSd.registrations().at(index).request.port;
    }

    std::uint16_t start(const std::string& name) { return start(make(name)); }

    void onQueue(const std::function<void()>& work)
    {
        std::promise<void> done;
        queue->async([&] {
            work();
            done.set_value();
        });
        done.get_future().wait();
    }

    Harness harness;
    const std::shared_ptr<DispatchQueue> queue = harness.makeQueue();
    std::vector<std::shared_ptr<Connection>> accepted;
    std::promise<void> twoAreAccepted;

private:
    std::vector<std::shared_ptr<Listener>> listeners_;
};

/// Runs the test where no other program has a port.
void alone(const std::function<void()>& test)
{
    inNetworkNamespace([&] {
        setLoopbackUp(true);
        test();
    });
}

std::vector<std::uint16_t> portsOf(const std::string& name)
{
    return servicePorts(name, ephemeralPorts());
}

/// Another program, which listens on the port.
Peer occupy(std::uint16_t port)
{
    std::error_code error;
    Peer other(openListeningSocket(port, true, error));
    EXPECT_FALSE(error) << error.message();
    return other;
}

/// The ports on which programs of this thread's network namespace listen.
std::multiset<std::uint16_t> listeningPorts()
{
    std::multiset<std::uint16_t> ports;
    for (const auto* path : {"/proc/thread-self/net/tcp", "/proc/thread-self/net/tcp6"}) {
        std::ifstream file(path);
        std::string line;
        std::getline(file, line);
        while (std::getline(file, line)) {
            std::istringstream fields(line);
            std::string number, local, remote, state;
            fields >> number >> local >> remote >> state;
            if (state == "0A")
                ports.insert(static_cast<std::uint16_t>(
                    std::stoul(local.substr(local.rfind(':') + 1), nullptr, 16)));
        }
    }
    return ports;
}

} // namespace

TEST(ListenerPort, isTheSameForAServiceInEveryRun)
{
    alone([] {
        for (int count = 0; count < 3; ++count)
            EXPECT_EQ(Program().start(kName), portsOf(kName).front());
        EXPECT_NE(Program().start("Quillbox"), portsOf(kName).front());
    });
}

TEST(ListenerPort, isTheOnlyOneThatIsOpen)
{
    alone([] {
        Program run;
        const auto port = run.start(kName);
        EXPECT_EQ(listeningPorts(), std::multiset{port});
        EXPECT_TRUE(connectPeer(port).send("x"));
    });
}

TEST(ListenerPort, isThatOfTheNameThatWasSetLast)
{
    alone([] {
        Program run;
        const auto listener = run.make("Quillbox");
        listener->setService({.name = kName, .type = "_smb._tcp"});
        EXPECT_EQ(run.start(listener), portsOf(kName).front());
        listener->setService({.name = "Quillbox", .type = "_smb._tcp"});
        EXPECT_EQ(listeningPorts(), std::multiset{portsOf(kName).front()})
            << "connections would be cut";
    });
}

TEST(ListenerPort, isTheNextOneWhereAnotherProgramListens)
{
    alone([] {
        const auto ports = portsOf(kName);
        const auto first = occupy(ports[0]);
        auto second = occupy(ports[1]);
        EXPECT_EQ(Program().start(kName), ports[2]);
        second.close();
        EXPECT_EQ(Program().start(kName), ports[1]);
    });
}

TEST(ListenerPort, isToldOfIfItIsNotTheUsualOne)
{
    alone([] {
        const auto said = [] {
            testing::internal::CaptureStderr();
            Program().start(kName);
            return testing::internal::GetCapturedStderr();
        };
        EXPECT_EQ(said(), "");
        const auto other = occupy(portsOf(kName).front());
        EXPECT_THAT(said(), testing::HasSubstr("the usual port of \"Quillbox Office\" is in use"));
    });
}

TEST(ListenerPort, isTheNextOneWhereAnotherCopyOfTheProgramHasTheService)
{
    alone([] {
        const auto ports = portsOf(kName);
        Program network;
        Program thisComputer(Reach::ThisComputer);
        EXPECT_EQ(network.start(kName), ports[0]);
        EXPECT_EQ(thisComputer.start(kName), ports[1]);
    });
}

TEST(ListenerPort, isAnyFreeOneWhereAllOfTheServiceAreTaken)
{
    alone([] {
        std::vector<Peer> others;
        for (const auto port : portsOf(kName))
            others.push_back(occupy(port));
        Program run;
        const auto port = run.start(kName);
        EXPECT_TRUE(ephemeralPorts().contains(port)) << port;
        EXPECT_TRUE(connectPeer(port).send("x"));
    });
}

TEST(ListenerPort, isTheSameWhileConnectionsOfAnEarlierListenerStand)
{
    alone([] {
        Program run;
        auto listener = run.make(kName);
        const auto port = run.start(listener);
        auto standing = connectPeer(port);
        auto closing = connectPeer(port);
        take(run.twoAreAccepted.get_future());
        Subject session(run.accepted.front(), run.harness.makeQueue());
        session.start();
        run.onQueue([&] {
            listener->cancel();
            run.accepted.clear();
        });
        bool isClean = false;
        closing.receiveAll(isClean);
        EXPECT_TRUE(isClean) << "the other end is in FIN-WAIT";
        EXPECT_EQ(run.start(kName), port);
        EXPECT_EQ(Program().start(kName), port + 1) << "the port is in use now";
        ASSERT_TRUE(standing.send("still here"));
        EXPECT_EQ(take(session.receive(10)).bytes, "still here");
    });
}

TEST(ListenerPort, isAwaitedIfAnEarlierListenerOfTheServiceIsAboutToCloseIt)
{
    alone([] {
        Program program;
        const auto earlier = program.make(kName);
        const auto port = program.start(earlier);
        const auto later = program.make(kName);
        const auto cancelled = program.make(kName);
        program.onQueue([&] {
            later->start(program.queue);
            cancelled->start(program.queue);
            cancelled->cancel();
        });
        EXPECT_EQ(program.harness.dnsSd.count(), 1U);
        program.onQueue([&] { earlier->cancel(); });
        ASSERT_TRUE(program.harness.dnsSd.waitForCount(2, kPatience));
        EXPECT_EQ(program.harness.dnsSd.registrations().at(1).request.port, port);
        program.onQueue([] {});
        EXPECT_EQ(program.harness.dnsSd.count(), 2U);
        EXPECT_EQ(listeningPorts(), std::multiset{port});
    });
}

TEST(ListenerPort, isAwaitedUnderAnyFormOfTheNameAndEvenIfTheKernelChoseIt)
{
    alone([] {
        const std::string composed = "Quillbox K\xc3\xbc"
                                     "che";
        const std::string decomposed = "Quillbox Ku\xcc\x88"
                                       "che";
        std::vector<Peer> others;
        for (const bool isChosenByKernel : {false, true}) {
            if (isChosenByKernel) {
                for (const auto port : portsOf(composed))
                    others.push_back(occupy(port));
            }
            Program program;
            const auto earlier = program.make(composed);
            const auto port = program.start(earlier);
            EXPECT_EQ(ephemeralPorts().contains(port), isChosenByKernel);
            const auto later = program.make(decomposed);
            program.onQueue([&] { later->start(program.queue); });
            EXPECT_EQ(program.harness.dnsSd.count(), 1U);
            program.onQueue([&] { earlier->cancel(); });
            ASSERT_TRUE(program.harness.dnsSd.waitForCount(2, kPatience));
        }
    });
}

TEST(ListenerPort, isNotAwaitedForLong)
{
    alone([] {
        Program program;
        const auto port = program.start(kName);
        EXPECT_EQ(program.start(kName), port + 1);
    });
}

TEST(ListenerPort, isOutsideTheRangeFromWhichTheKernelChooses)
{
    alone([] {
        const auto usual = portsOf(kName).front();
        std::ofstream("/proc/sys/net/ipv4/ip_local_port_range") << "62000 65000\n";
        EXPECT_TRUE(ephemeralPorts().contains(usual));
        const auto port = Program().start(kName);
        EXPECT_EQ(port, portsOf(kName).front());
        EXPECT_LT(port, 62000);
        EXPECT_EQ(Program().start(kName), port);
    });
}

TEST(ListenerPort, isTheOneThatWasAskedFor)
{
    alone([] {
        Program run;
        EXPECT_EQ(run.start(run.make(kName, 4445)), 4445);
    });
}

TEST_F(Backstage, aPortIsFreeForWhomeverAwaitsIt)
{
    std::error_code error;
    auto held = context->ownPorts.open(kAnyPort, true, error, kName);
    const auto port = held->number;
    std::optional<ListeningPort> next;
    EXPECT_FALSE(context->ownPorts.afterRemoval("Quillbox", [] {}));
    EXPECT_TRUE(context->ownPorts.afterRemoval(
        kName, [&] { next = context->ownPorts.open(port, true, error); }));
    held.reset();
    EXPECT_TRUE(next) << error.message();
}

TEST_F(Backstage, aListenerRefusesItsOwnPortForDialling)
{
    std::error_code error;
    const auto listener =
        makeTcpListener(context, {.allowLocalEndpointReuse = true}, kAnyPort, error);
    listener->setService({.name = kName, .type = "_smb._tcp"});
    onQueue([&] { listener->start(queue); });
    const auto port = dnsSd.registrations().at(0).request.port;
    EXPECT_TRUE(context->ownPorts.contains(port));
    onQueue([&] { listener->cancel(); });
    EXPECT_FALSE(context->ownPorts.contains(port));
}

} // namespace quillbox
