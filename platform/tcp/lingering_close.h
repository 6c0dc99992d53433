#pragma once

#include "platform/tcp/socket.h"
#include "platform/tcp/tcp_context.h"
#include "platform/tcp/unsent.h"

#include <memory>

namespace quillbox {

/// Closes a connection without losing bytes that were accepted for sending: sends what is left,
/// then the end of the stream, and closes once the peer's system has acknowledged all of it. A
/// plain close would do, but for input that was not read or is yet to come: that makes the system
/// reset the connection and throw away what it has not delivered.
///
/// Input is discarded meanwhile, 64 MiB at the most, and the whole ends when the peer accepts
/// nothing for 30 seconds. Runs in the background on the pool; when there is nothing to wait for,
/// the socket is closed before this returns. `resetMatters` tells whether something was sent and
/// input may be left.
void closeGently(const std::shared_ptr<TcpContext>& context, std::unique_ptr<Socket> socket,
                 Unsent unsent, bool resetMatters);

} // namespace quillbox
