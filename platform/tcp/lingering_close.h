#pragma once

#include "platform/dispatch/fd_watcher.h"
#include "platform/dispatch/loop_queue.h"
#include "platform/tcp/chunk_pool.h"
#include "platform/tcp/pipe_pool.h"

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
/// `patience`. Runs in the background on the queue; if there is nothing to wait for, the socket is
/// closed before this returns. `resetMatters`: whether something was sent and input may be left.
void closeGently(const std::shared_ptr<LoopQueue>& queue, const std::shared_ptr<ChunkPool>& chunks,
                 std::unique_ptr<FdWatcher> socket, PendingSend unsent, bool resetMatters,
                 Ending ending, std::chrono::milliseconds patience = std::chrono::seconds(30));

} // namespace quillbox
