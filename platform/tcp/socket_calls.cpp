#include "platform/tcp/socket_calls.h"

#include "platform/values/socket_address.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <random>
#include <span>
#include <string_view>

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

// Missing in the headers of the C library.
#ifndef IP_LOCAL_PORT_RANGE // since Linux 6.3
#define IP_LOCAL_PORT_RANGE 51
#endif

namespace quillbox {

namespace {

constexpr int kKeepAliveIdleSeconds = 60;
constexpr int kKeepAliveIntervalSeconds = 15;
constexpr int kKeepAliveProbes = 4;

/// The number of SYN retransmissions before the attempt times out, after about 20 seconds (15
/// before Linux 6.5). By default this takes more than two minutes, with pauses of up to one minute
/// in which a phone that wakes up would not be noticed.
constexpr int kConnectRetries = 3;

std::error_code lastError()
{
    return {errno, std::system_category()};
}

bool setOption(int socket, int level, int name, int value)
{
    return ::setsockopt(socket, level, name, &value, sizeof value) == 0;
}

std::size_t countOf(int socket, unsigned long request)
{
    int count = 0;
    return ::ioctl(socket, request, &count) == 0 ? static_cast<std::size_t>(std::max(count, 0)) : 0;
}

/// The address that a call like accept(2) writes; none if the call fails.
template <typename Call> SocketAddress receiveAddress(Call call)
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    auto* const written = reinterpret_cast<sockaddr*>(&address);
    return call(written, &size) < 0 ? SocketAddress() : SocketAddress(written, size);
}

/// In a closed state if it cannot be read.
tcp_info infoOf(int socket)
{
    tcp_info info{};
    socklen_t size = sizeof info;
    if (::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0)
        info.tcpi_state = TCP_CLOSE;
    return info;
}

/// Narrows the ports from which the kernel chooses one to a random part of the usual range. The
/// kernel ignores what is outside the range of this system.
void chooseLocalPorts(int socket)
{
    constexpr std::uint32_t kFirst = 32768;
    constexpr std::uint32_t kLast = 60999;
    // Takes a quarter of a millisecond to search, and is hardly ever in use as a whole.
    constexpr std::uint32_t kCount = 512;
    // Not to keep anything secret, so one seed is enough for the thread.
    thread_local std::minstd_rand random{std::random_device{}()};
    const auto low = static_cast<std::uint32_t>(kFirst + random() % (kLast + 2 - kFirst - kCount));
    setOption(socket, IPPROTO_IP, IP_LOCAL_PORT_RANGE,
              static_cast<int>((low + kCount - 1) << 16U | low));
}

/// Accepts only connections over the loopback interface. Binding to a loopback address is not
/// enough, because each service has its own address in 127.0.0.0/8.
bool confineToThisComputer(int socket)
{
    constexpr std::string_view kLoopback = "lo";
    return ::setsockopt(socket, SOL_SOCKET, SO_BINDTODEVICE, kLoopback.data(), kLoopback.size())
           == 0;
}

int openListeningSocket(int family, std::uint16_t port, bool allowReuse, Reach reach,
                        std::error_code& error)
{
    const int socket = openStreamSocket(family, error);
    if (socket < 0)
        return -1;
    if (reach == Reach::ThisComputer && !confineToThisComputer(socket)) {
        error = lastError();
        ::close(socket);
        return -1;
    }
    if (allowReuse)
        setOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
    setConnectionOptions(socket);
    keepAlive(socket);
    if (family == AF_INET6)
        setOption(socket, IPPROTO_IPV6, IPV6_V6ONLY, 0);
    constexpr std::array<std::uint8_t, sizeof(in6_addr)> kAny{};
    const SocketAddress any = makeSocketAddress(
        std::span(kAny).first(family == AF_INET6 ? sizeof(in6_addr) : sizeof(in_addr)), port);
    if (::bind(socket, any.data(), any.size()) == 0 && ::listen(socket, SOMAXCONN) == 0)
        return socket;
    error = lastError();
    ::close(socket);
    return -1;
}

} // namespace

int openStreamSocket(int family, std::error_code& error)
{
    const int socket = ::socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP);
    error = socket < 0 ? lastError() : std::error_code();
    return socket;
}

int acceptStreamSocket(int listener, SocketAddress& client, std::error_code& error)
{
    int socket = -1;
    client = receiveAddress([&](sockaddr* address, socklen_t* size) {
        return socket = ::accept4(listener, address, size, SOCK_NONBLOCK | SOCK_CLOEXEC);
    });
    error = socket < 0 ? lastError() : std::error_code();
    if (socket < 0)
        return -1;
    if (!isDead(socket))
        return socket;
    ::close(socket);
    error = std::make_error_code(std::errc::connection_aborted);
    return -1;
}

bool hasConnectionToAccept(int listener)
{
    pollfd accepting{.fd = listener, .events = POLLIN, .revents = 0};
    return ::poll(&accepting, 1, 0) > 0;
}

void setConnectionOptions(int socket)
{
    // The connection works without any of these, so failures are ignored.
    setOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
    // Keeps urgent data (RFC 6093) in the stream, so that no byte is lost.
    setOption(socket, SOL_SOCKET, SO_OOBINLINE, 1);
}

void keepAlive(int socket)
{
    setOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
    // Set afterwards, it counts from the last byte that came (tcp_sock_set_keepidle in Linux).
    setOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, kKeepAliveIdleSeconds);
    setOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, kKeepAliveIntervalSeconds);
    setOption(socket, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveProbes);
}

int openListeningSocket(std::uint16_t port, bool allowReuse, std::error_code& error, Reach reach)
{
    const int socket = openListeningSocket(AF_INET6, port, allowReuse, reach, error);
    if (error == std::errc::address_family_not_supported
        || error == std::errc::address_not_available)
        return openListeningSocket(AF_INET, port, allowReuse, reach, error);
    return socket;
}

std::error_code bindToInterface(int socket, int interfaceIndex)
{
    const bool isBound =
        ::setsockopt(socket, SOL_SOCKET, SO_BINDTOIFINDEX, &interfaceIndex, sizeof interfaceIndex)
        == 0;
    return isBound ? std::error_code() : lastError();
}

std::error_code beginConnect(int socket, const SocketAddress& address)
{
    setOption(socket, IPPROTO_TCP, TCP_SYNCNT, kConnectRetries);
    chooseLocalPorts(socket);
    const auto connect = [&] { return ::connect(socket, address.data(), address.size()); };
    auto result = connect();
    if (result != 0 && errno == EADDRNOTAVAIL) {
        // All ports of the part are in use, or hardly any is in the range of this system.
        setOption(socket, IPPROTO_IP, IP_LOCAL_PORT_RANGE, 0);
        result = connect();
    }
    if (result == 0)
        return {};
    // An interrupted attempt continues in the background (connect(2)).
    return errno == EINTR ? std::make_error_code(std::errc::operation_in_progress) : lastError();
}

bool hasRetransmitted(int socket)
{
    return infoOf(socket).tcpi_total_retrans > 0;
}

bool isSelfConnected(int socket, std::uint16_t port)
{
    const auto local = localAddress(socket);
    if (portOf(local) != port)
        return false;
    return local == receiveAddress([socket](sockaddr* address, socklen_t* size) {
               return ::getpeername(socket, address, size);
           });
}

SocketAddress localAddress(int socket)
{
    return receiveAddress([socket](sockaddr* address, socklen_t* size) {
        return ::getsockname(socket, address, size);
    });
}

std::uint16_t localPort(int socket)
{
    return portOf(localAddress(socket));
}

std::error_code takeSocketError(int socket)
{
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) != 0)
        return lastError();
    return {error, std::system_category()};
}

Transfer receiveSome(int socket, std::span<std::byte> room)
{
    return uninterrupted([&] { return ::recv(socket, room.data(), room.size(), 0); });
}

Transfer sendSome(int socket, std::span<const std::byte> bytes)
{
    return uninterrupted([&] { return ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL); });
}

Transfer discardSome(int socket, std::size_t limit)
{
    return uninterrupted([&] { return ::recv(socket, nullptr, limit, MSG_TRUNC); });
}

std::size_t unreadBytes(int socket)
{
    return countOf(socket, FIONREAD);
}

std::size_t unacknowledgedBytes(int socket)
{
    return countOf(socket, SIOCOUTQ);
}

std::chrono::milliseconds unansweredFor(int socket)
{
    const auto info = infoOf(socket);
    return std::chrono::milliseconds(info.tcpi_retransmits > 0 ? info.tcpi_last_ack_recv : 0);
}

void giveUp(int socket)
{
    // connect(2): this address dissolves the association.
    const sockaddr none{.sa_family = AF_UNSPEC, .sa_data = {}};
    ::connect(socket, &none, sizeof none);
}

bool isDead(int socket)
{
    return infoOf(socket).tcpi_state == TCP_CLOSE;
}

void shutDownSending(int socket)
{
    ::shutdown(socket, SHUT_WR);
}

void resetOnClose(int socket)
{
    constexpr linger kAtOnce{.l_onoff = 1, .l_linger = 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &kAtOnce, sizeof kAtOnce);
}

} // namespace quillbox
