#include "platform/tcp/socket_calls.h"
#include "platform/values/socket_address.h"
#include "tests/fakes/socket_addresses.h"
#include "tests/platform/netlink/network_namespace.h"
#include "tests/platform/tcp/refused_calls.h"
#include "tests/platform/tcp/tcp_harness.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <set>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>

namespace quillbox {

using namespace std::chrono_literals;

namespace {

int option(int socket, int level, int name)
{
    int value = 0;
    socklen_t size = sizeof value;
    EXPECT_EQ(::getsockopt(socket, level, name, &value, &size), 0);
    return value;
}

void expectConnectionOptions(int descriptor)
{
    EXPECT_EQ(option(descriptor, IPPROTO_TCP, TCP_NODELAY), 1);
    EXPECT_EQ(option(descriptor, SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_EQ(option(descriptor, IPPROTO_TCP, TCP_KEEPIDLE), 60);
    EXPECT_EQ(option(descriptor, IPPROTO_TCP, TCP_KEEPINTVL), 15);
    EXPECT_EQ(option(descriptor, IPPROTO_TCP, TCP_KEEPCNT), 4);
    EXPECT_EQ(option(descriptor, SOL_SOCKET, SO_OOBINLINE), 1);
    EXPECT_EQ(option(descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT), 0) << "ends slow readers";
}

unsigned retransmissions(int socket)
{
    tcp_info info{};
    socklen_t size = sizeof info;
    EXPECT_EQ(::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size), 0);
    return info.tcpi_retransmits;
}

} // namespace

TEST(SocketCalls, openSocketsThatNeverBlockAndAreNotInherited)
{
    std::error_code error;
    const Peer socket(openStreamSocket(AF_INET, error));
    ASSERT_FALSE(error);
    EXPECT_NE(::fcntl(socket.descriptor(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(::fcntl(socket.descriptor(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(SocketCalls, acceptSocketsThatNeverBlockAndAreNotInherited)
{
    std::error_code error;
    const Peer listener(openListeningSocket(0, false, error));
    ASSERT_FALSE(error);
    const auto peer = connectPeer(localPort(listener.descriptor()));
    SocketAddress client;
    const Peer accepted(acceptStreamSocket(listener.descriptor(), client, error));
    ASSERT_FALSE(error);
    EXPECT_EQ(client, ipv6Address("::ffff:127.0.0.1", 0, localPort(peer.descriptor())));
    EXPECT_NE(::fcntl(accepted.descriptor(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(::fcntl(accepted.descriptor(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_LT(acceptStreamSocket(listener.descriptor(), client, error), 0);
    EXPECT_EQ(error, std::errc::operation_would_block);
}

TEST(SocketCalls, acceptNothingThatItsClientHasReset)
{
    std::error_code error;
    const Peer listener(openListeningSocket(0, false, error));
    ASSERT_FALSE(error);
    connectPeer(localPort(listener.descriptor())).reset();
    const auto before = openDescriptorCount();
    SocketAddress client;
    EXPECT_LT(acceptStreamSocket(listener.descriptor(), client, error), 0);
    EXPECT_EQ(error, std::errc::connection_aborted);
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(SocketCalls, confineAListenerToThisComputer)
{
    std::error_code error;
    const Peer listener(openListeningSocket(0, false, error, Reach::ThisComputer));
    ASSERT_FALSE(error) << error.message();
    std::array<char, 16> device{};
    socklen_t size = device.size();
    ASSERT_EQ(
        ::getsockopt(listener.descriptor(), SOL_SOCKET, SO_BINDTODEVICE, device.data(), &size), 0);
    EXPECT_STREQ(device.data(), "lo");
}

TEST(SocketCalls, setNoDelayAndKeepAlive)
{
    std::error_code error;
    const Peer socket(openStreamSocket(AF_INET, error));
    setConnectionOptions(socket.descriptor());
    keepAlive(socket.descriptor());
    expectConnectionOptions(socket.descriptor());
}

TEST(SocketCalls, acceptWithTheSameOptions)
{
    std::error_code error;
    const Peer listener(openListeningSocket(kAnyPort, false, error));
    ASSERT_FALSE(error);
    const auto peer = connectPeer(localPort(listener.descriptor()));
    SocketAddress client;
    const Peer accepted(acceptStreamSocket(listener.descriptor(), client, error));
    ASSERT_FALSE(error);
    expectConnectionOptions(accepted.descriptor());
}

TEST(SocketCalls, tellWhetherTheRequestForAConnectionWasRepeated)
{
    const SilentAddress phone("127.0.0.1");
    std::error_code error;
    const Peer socket(openStreamSocket(AF_INET, error));
    ASSERT_EQ(beginConnect(socket.descriptor(), phone.address()), std::errc::operation_in_progress);
    EXPECT_FALSE(hasRetransmitted(socket.descriptor()));
    phone.answer();
    pollfd connecting{.fd = socket.descriptor(), .events = POLLOUT, .revents = 0};
    ASSERT_EQ(::poll(&connecting, 1, 20'000), 1);
    EXPECT_TRUE(hasRetransmitted(socket.descriptor()));
}

TEST(SocketCalls, giveAnAttemptUpAfterAFewRetransmissions)
{
    const PeerListener listener;
    std::error_code error;
    const Peer socket(openStreamSocket(AF_INET, error));
    ASSERT_FALSE(error);
    const auto result = beginConnect(socket.descriptor(), listener.address());
    ASSERT_TRUE(!result || result == std::errc::operation_in_progress);
    EXPECT_EQ(option(socket.descriptor(), IPPROTO_TCP, TCP_SYNCNT), 3);
}

TEST(SocketCalls, connectFromAPortOfASmallPartOfTheRange)
{
    constexpr int kLocalPortRange = 51; // IP_LOCAL_PORT_RANGE
    std::error_code none;
    const Peer probe(openStreamSocket(AF_INET, none));
    constexpr unsigned kAny = 40001U << 16U | 40000U;
    if (::setsockopt(probe.descriptor(), IPPROTO_IP, kLocalPortRange, &kAny, sizeof kAny) != 0)
        GTEST_SKIP() << "before Linux 6.3";
    const PeerListener listener;
    std::set<int> parts;
    for (int count = 0; count < 8; ++count) {
        std::error_code error;
        const Peer socket(openStreamSocket(AF_INET, error));
        const auto result = beginConnect(socket.descriptor(), listener.address());
        ASSERT_TRUE(!result || result == std::errc::operation_in_progress);
        const auto part = option(socket.descriptor(), IPPROTO_IP, kLocalPortRange);
        const auto low = static_cast<unsigned>(part) & 0xffffU;
        const auto high = static_cast<unsigned>(part) >> 16U;
        EXPECT_EQ(high - low, 511U);
        EXPECT_GE(low, 32768U);
        EXPECT_LE(high, 60999U);
        const unsigned port = localPort(socket.descriptor());
        EXPECT_GE(port, low);
        EXPECT_LE(port, high);
        parts.insert(part);
    }
    EXPECT_GT(parts.size(), 1U) << "another part each time";
}

TEST(SocketCalls, connectThoughAllPortsOfThePartAreTaken)
{
    inNetworkNamespace([] {
        setLoopbackUp(true);
        std::ofstream range("/proc/sys/net/ipv4/ip_local_port_range");
        range << "32768 61010\n" << std::flush;
        std::ofstream reserved("/proc/sys/net/ipv4/ip_local_reserved_ports");
        reserved << "32768-61000\n" << std::flush;
        if (!range || !reserved)
            GTEST_SKIP() << "no permission to set the range of ports";
        std::error_code error;
        const Peer listener(openListeningSocket(4445, false, error));
        const Peer socket(openStreamSocket(AF_INET, error));
        error = beginConnect(socket.descriptor(), ipv4Address("127.0.0.1", 4445));
        EXPECT_TRUE(!error || error == std::errc::operation_in_progress) << error.message();
        EXPECT_GT(localPort(socket.descriptor()), 61000);
    });
}

TEST(SocketCalls, goOnWithAnAttemptThatASignalInterrupted)
{
    bool isRefused = false;
    std::error_code result;
    std::thread([&] {
        std::error_code error;
        const Peer socket(openStreamSocket(AF_INET, error));
        isRefused = refuseCalls(SYS_connect, EINTR);
        result = beginConnect(socket.descriptor(), ipv4Address("127.0.0.1", 4445));
    }).join();
    if (!isRefused)
        GTEST_SKIP() << "no permission to filter system calls";
    EXPECT_EQ(result, std::errc::operation_in_progress);
}

TEST(SocketCalls, listenByIPv4AloneWhereThereIsNoIPv6)
{
    bool isRefused = false;
    std::thread([&] {
        isRefused = refuseCalls(SYS_socket, EAFNOSUPPORT, AF_INET6);
        std::error_code error;
        const Peer listener(openListeningSocket(0, false, error));
        EXPECT_EQ(isRefused && error, false) << error.message();
        if (isRefused) {
            EXPECT_EQ(familyOf(localAddress(listener.descriptor())), AF_INET);
            connectPeer(localPort(listener.descriptor()));
        }
    }).join();
    if (!isRefused)
        GTEST_SKIP() << "no permission to filter system calls";
}

TEST(SocketCalls, listenByIPv4TooWhereTheSystemWouldNot)
{
    inNetworkNamespace([] {
        setLoopbackUp(true);
        std::ofstream alone("/proc/sys/net/ipv6/bindv6only");
        alone << "1\n" << std::flush;
        if (!alone)
            GTEST_SKIP() << "no IPv6 here, or no permission to set its options";
        std::error_code error;
        const Peer listener(openListeningSocket(4445, false, error));
        ASSERT_FALSE(error) << error.message();
        EXPECT_EQ(option(listener.descriptor(), IPPROTO_IPV6, IPV6_V6ONLY), 0);
    });
}

TEST(SocketCalls, resetAConnectionThatIsToEndSo)
{
    const PeerListener listener;
    const auto peer = connectPeer(listener.port());
    auto accepted = listener.accept();
    resetOnClose(accepted.descriptor());
    accepted.close();
    bool isClean = true;
    EXPECT_TRUE(peer.receiveAll(isClean).empty());
    EXPECT_FALSE(isClean);
}

TEST(SocketCalls, noticeAConnectionToItself)
{
    std::error_code error;
    const Peer socket(openStreamSocket(AF_INET, error));
    auto address = ipv4Address("127.0.0.1");
    ASSERT_EQ(::bind(socket.descriptor(), address.data(), address.size()), 0);
    address = withPort(address, localPort(socket.descriptor()));
    const auto result = beginConnect(socket.descriptor(), address);
    ASSERT_TRUE(!result || result == std::errc::operation_in_progress);
    ASSERT_FALSE(takeSocketError(socket.descriptor()));
    EXPECT_TRUE(isSelfConnected(socket.descriptor(), portOf(address)));

    const PeerListener listener;
    const auto other = connectPeer(listener.port());
    EXPECT_FALSE(isSelfConnected(other.descriptor(), listener.port()));
}

TEST(SocketCalls, tellWhatIsUnreadAndThrowItAway)
{
    const PeerListener listener;
    const auto peer = connectPeer(listener.port());
    const auto accepted = listener.accept();
    ASSERT_TRUE(peer.send("abcdef"));
    ASSERT_TRUE(peer.waitUntilAcknowledged());
    EXPECT_EQ(unreadBytes(accepted.descriptor()), 6U);
    EXPECT_EQ(discardSome(accepted.descriptor(), 4).count, 4U);
    EXPECT_EQ(unreadBytes(accepted.descriptor()), 2U);
}

TEST(SocketCalls, raiseNoSignalWhenThePeerIsGone)
{
    const PeerListener listener;
    auto peer = connectPeer(listener.port());
    const auto accepted = listener.accept();
    peer.reset();
    const std::string text = "x";
    const auto bytes = std::as_bytes(std::span(text.data(), text.size()));
    EXPECT_TRUE(sendSome(accepted.descriptor(), bytes).error);
    EXPECT_EQ(sendSome(accepted.descriptor(), bytes).error, std::errc::broken_pipe);
    EXPECT_TRUE(isDead(accepted.descriptor()));
}

TEST(SocketCalls, measureTheSilenceOfAPeerOnlyWhileTheKernelRepeatsBytes)
{
    inNetworkNamespace([] {
        setLoopbackUp(true);
        const PeerListener listener;
        const auto client = connectPeer(listener.port());
        const auto phone = listener.accept();
        const int socket = client.descriptor();
        EXPECT_EQ(unansweredFor(socket), 0ms);

        setLoopbackUp(false);
        EXPECT_EQ(::send(socket, "?", 1, MSG_NOSIGNAL), 1);
        const auto end = std::chrono::steady_clock::now() + kPatience;
        // The kernel tells nobody that it retransmits.
        while (retransmissions(socket) == 0 && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_GE(unansweredFor(socket), 100ms); // a retransmission takes longer

        setLoopbackUp(true);
        EXPECT_EQ(phone.receiveExactly(1), "?");
        EXPECT_TRUE(client.waitUntilAcknowledged());
        EXPECT_EQ(unansweredFor(socket), 0ms);
    });
}

TEST(SocketCalls, giveUpAConnectionWithBytesThatNobodyAcknowledges)
{
    inNetworkNamespace([] {
        setLoopbackUp(true);
        const PeerListener listener;
        const auto client = connectPeer(listener.port());
        const auto phone = listener.accept();
        setLoopbackUp(false);
        EXPECT_EQ(::send(client.descriptor(), "?", 1, MSG_NOSIGNAL), 1);

        giveUp(client.descriptor());

        EXPECT_TRUE(isDead(client.descriptor()));
        pollfd waiting{.fd = client.descriptor(), .events = 0, .revents = 0};
        EXPECT_EQ(::poll(&waiting, 1, 0), 1);
        EXPECT_NE(waiting.revents & (POLLERR | POLLHUP), 0);
    });
}

} // namespace quillbox
