#pragma once

#include "platform/net_service.h"
#include "platform/reach.h"
#include "platform/tcp/transfer.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <system_error>

/// The system calls on TCP sockets, each wrapped once. None of them blocks, for the sockets are all
/// non-blocking; none of them raises SIGPIPE.
namespace quillbox {

/// Opens a non-blocking socket that children do not inherit; -1 and an error on failure.
int openStreamSocket(int family, std::error_code& error);

/// Accepts one connection, with the same properties and the listening socket's options; -1 and an
/// error on failure.
int acceptStreamSocket(int listener, std::error_code& error);

/// Sets what `TcpParameters` promises of every connection.
void setConnectionOptions(int socket);

/// Opens a port for IPv6 and IPv4, or for IPv4 alone on a system without IPv6, with the options of
/// its connections to be; -1 and an error on failure.
int openListeningSocket(std::uint16_t port, bool allowReuse, std::error_code& error,
                        Reach reach = Reach::Network);

/// Starts connecting; `operation_in_progress` when the result is yet to come.
std::error_code beginConnect(int socket, const SocketAddress& address);

/// Whether a socket that dialled `port` is connected to itself, which happens to one that dials a
/// port from the range that it gets its own port from.
bool isSelfConnected(int socket, std::uint16_t port);

std::uint16_t localPort(int socket);

/// What the socket failed with, if it has; the kernel forgets it by telling.
std::error_code takeSocketError(int socket);

Transfer receiveSome(int socket, std::span<std::byte> room);
Transfer sendSome(int socket, std::span<const std::byte> bytes);

/// Throws input away, without copying it.
Transfer discardSome(int socket, std::size_t limit);

/// The bytes that have arrived and were not read.
std::size_t unreadBytes(int socket);

/// The bytes that were sent and not acknowledged, the end of the stream counting as one.
std::size_t unacknowledgedBytes(int socket);

/// Whether the connection is over in both directions, so that nothing can be delivered any more.
bool isDead(int socket);

void shutDownSending(int socket);

} // namespace quillbox
