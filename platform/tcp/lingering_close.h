#pragma once

#include "platform/tcp/socket.h"
#include "platform/tcp/tcp_context.h"
#include "platform/tcp/unsent.h"

#include <chrono>
#include <memory>

namespace quillbox {

/// How a connection ends after its last bytes: regularly, or with a reset.
enum class Ending { EndOfStream, Reset };

/// Closes a connection without losing bytes that were accepted for sending: sends the rest and the
/// ending, and closes the socket once the peer has acknowledged everything. A plain close(2) is not
/// enough, because unread or later input makes the kernel reset the connection and discard
/// undelivered data.
///
/// Meanwhile input is discarded, at most 64 MiB. Gives up when the peer accepts nothing for
/// `patience`. Runs in the background on the pool; if there is nothing to wait for, the socket is
/// closed before this returns. `resetMatters`: whether something was sent and input may be left.
void closeGently(const std::shared_ptr<TcpContext>& context, std::unique_ptr<Socket> socket,
                 Unsent unsent, bool resetMatters, Ending ending,
                 std::chrono::milliseconds patience = std::chrono::seconds(30));

} // namespace quillbox
