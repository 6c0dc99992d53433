#pragma once

#include "platform/values/reach.h"
#include "platform/values/socket_address.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <system_error>

#include <sys/types.h>

/// Wrappers of the system calls on TCP sockets. None of them blocks, because all sockets are
/// non-blocking, and none raises SIGPIPE.
namespace quillbox {

/// The number of bytes that a call moved, or its error. No bytes and no error: end of the stream.
struct Transfer {
    std::size_t count = 0;
    std::error_code error;

    bool wouldBlock() const { return error == std::errc::operation_would_block; }
    bool isEnd() const { return count == 0 && !error; }
};

/// Makes a system call that returns a count or -1, and repeats it while a signal interrupts it.
template <typename Call> Transfer uninterrupted(Call call)
{
    ssize_t result = 0;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    if (result >= 0)
        return {.count = static_cast<std::size_t>(result), .error = {}};
    return {.count = 0, .error = {errno, std::system_category()}};
}

/// Opens a non-blocking, close-on-exec socket; -1 and an error on failure.
int openStreamSocket(int family, std::error_code& error);

/// Accepts one connection as a non-blocking, close-on-exec socket, which inherits the options of
/// the listening socket, and gets its client's address; -1 and an error on failure, which is
/// `connection_aborted` for a connection that its client has reset by now.
int acceptStreamSocket(int listener, SocketAddress& client, std::error_code& error);

/// Whether there is a connection to accept. Cheaper than accept(2), which makes a file first.
bool hasConnectionToAccept(int listener);

/// Sets the options that a connection has from its beginning (see `TcpParameters`).
void setConnectionOptions(int socket);

/// Lets the kernel probe the peer after a minute without traffic, counted from the last byte that
/// came, not from this call.
void keepAlive(int socket);

/// Opens a listening socket for IPv6 and IPv4, or for IPv4 only on a system without IPv6. Sets the
/// connection options and keep-alive, which accepted sockets inherit. -1 and an error on failure.
int openListeningSocket(std::uint16_t port, bool allowReuse, std::error_code& error,
                        Reach reach = Reach::Network);

/// Lets the socket send and receive through the interface with this index only (SO_BINDTOIFINDEX,
/// which needs no privilege since Linux 5.7).
std::error_code bindToInterface(int socket, int interfaceIndex);

/// Starts connecting, from a port of a random part of the ephemeral range: the kernel would search
/// all of it, which takes milliseconds when thousands of ports to this address are in use or in
/// TIME-WAIT. (Linux before 6.3 searches all of it nevertheless.) `operation_in_progress` if the
/// result is still pending.
std::error_code beginConnect(int socket, const SocketAddress& address);

/// Whether a segment was sent more than once, such as the SYN of a connection just established.
bool hasRetransmitted(int socket);

/// Whether a socket that connected to `port` is connected to itself. This happens if `port` is in
/// the ephemeral range and the kernel also chose it as the local port.
bool isSelfConnected(int socket, std::uint16_t port);

std::uint16_t localPort(int socket);

/// The socket's own address; empty if it cannot be read.
SocketAddress localAddress(int socket);

/// Reads the pending error of the socket, which clears it (SO_ERROR).
std::error_code takeSocketError(int socket);

Transfer receiveSome(int socket, std::span<std::byte> room);
Transfer sendSome(int socket, std::span<const std::byte> bytes);

/// Discards received data without copying it.
Transfer discardSome(int socket, std::size_t limit);

/// The number of received bytes that were not read yet.
std::size_t unreadBytes(int socket);

/// The number of bytes in the kernel's send buffer: not yet sent, or not yet acknowledged. The end
/// of the stream counts as one.
std::size_t unacknowledgedBytes(int socket);

/// How long a peer may acknowledge nothing: as long as keep-alive takes with an idle one.
inline constexpr std::chrono::milliseconds kSilenceLimit{std::chrono::minutes(2)};

/// How long after its beginning an outgoing connection gets keep-alive, and how often a peer is
/// checked that has not acknowledged everything.
inline constexpr std::chrono::milliseconds kPeerCheck{std::chrono::seconds(30)};

/// How long ago the peer last acknowledged anything, while the kernel repeats bytes for it; zero if
/// the kernel repeats nothing. A peer that does not read acknowledges all the same.
std::chrono::milliseconds unansweredFor(int socket);

/// Ends the connection at once, as the kernel does when it gives up: whatever waits for the socket
/// is woken, and all that is left to send is lost.
void giveUp(int socket);

/// Whether the connection is closed in both directions, so that nothing can be delivered any more.
bool isDead(int socket);

void shutDownSending(int socket);

/// Lets close(2) reset the connection and drop what has not been delivered (SO_LINGER).
void resetOnClose(int socket);

} // namespace quillbox
