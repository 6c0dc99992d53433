#include "bench/tcp.h"

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace quillbox::bench {

namespace {

constexpr int kConnectMilliseconds = 10'000;

[[noreturn]] void fail(const char* what, int error = errno)
{
    throw std::system_error(error, std::system_category(), what);
}

void setOption(int socket, int level, int name)
{
    const int on = 1;
    if (::setsockopt(socket, level, name, &on, sizeof on) != 0)
        fail("setsockopt");
}

Descriptor openSocket()
{
    Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP));
    if (socket.get() < 0)
        fail("socket");
    return socket;
}

/// A result of zero is the end of the stream for a read; a write of at least one byte never
/// returns zero.
Moved moved(ssize_t result)
{
    if (result > 0)
        return {.count = static_cast<std::size_t>(result), .isOver = false};
    const bool isNothingYet = result < 0 && (errno == EAGAIN || errno == EINTR);
    return {.count = 0, .isOver = !isNothingYet};
}

} // namespace

void Descriptor::reset(int value)
{
    if (value_ >= 0)
        ::close(value_);
    value_ = value;
}

sockaddr_in addressOf(const Target& target)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(target.port);
    if (::inet_pton(AF_INET, target.address.c_str(), &address.sin_addr) != 1)
        throw std::invalid_argument("not an IPv4 address: " + target.address);
    return address;
}

Descriptor listenOn(std::uint16_t port)
{
    Descriptor socket = openSocket();
    setOption(socket.get(), SOL_SOCKET, SO_REUSEADDR);
    const auto any = addressOf({.address = "0.0.0.0", .port = port});
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0)
        fail("bind");
    if (::listen(socket.get(), SOMAXCONN) != 0)
        fail("listen");
    return socket;
}

Descriptor beginConnect(const sockaddr_in& address)
{
    Descriptor socket = openSocket();
    setOption(socket.get(), IPPROTO_TCP, TCP_NODELAY);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    if (::connect(socket.get(), generic, sizeof address) != 0 && errno != EINPROGRESS)
        fail("connect");
    return socket;
}

Descriptor connectTo(const sockaddr_in& address)
{
    Descriptor socket = beginConnect(address);
    pollfd wait{.fd = socket.get(), .events = POLLOUT, .revents = 0};
    if (::poll(&wait, 1, kConnectMilliseconds) != 1)
        fail("connect", ETIMEDOUT);
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0)
        fail("connect", error);
    return socket;
}

Descriptor acceptFrom(int listener)
{
    Descriptor socket(::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (socket.get() >= 0)
        setOption(socket.get(), IPPROTO_TCP, TCP_NODELAY);
    return socket;
}

Moved readSome(int socket, std::span<std::byte> room)
{
    return moved(::recv(socket, room.data(), room.size(), 0));
}

Moved writeSome(int socket, std::span<const std::byte> bytes)
{
    return moved(::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL));
}

Moved writeSome(int socket, std::span<const std::byte> first, std::span<const std::byte> second)
{
    // sendmsg does not change what it sends.
    const auto piece = [](std::span<const std::byte> bytes) {
        return iovec{.iov_base = const_cast<std::byte*>(bytes.data()), .iov_len = bytes.size()};
    };
    std::array pieces{piece(first), piece(second)};
    msghdr message{};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    return moved(::sendmsg(socket, &message, MSG_NOSIGNAL));
}

void raiseDescriptorLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        fail("getrlimit");
    limit.rlim_cur = limit.rlim_max;
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
        fail("setrlimit");
}

} // namespace quillbox::bench
