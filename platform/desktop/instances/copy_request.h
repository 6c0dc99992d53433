#pragma once

#include "platform/posix/file_descriptor.h"

#include <chrono>
#include <optional>
#include <string>

namespace quillbox {

/// The client side of copy_protocol.h. These calls block, with a limit, and need no event loop.
/// They send nothing to a process of another user.

/// Asks the copy at the other end to bring its window to the front, and waits for its answer. False
/// if it answers that it has no display. `token` is the desktop's activation token; may be empty.
bool requestActivation(int connection, const std::string& token, std::chrono::milliseconds limit);

/// Sends a message and returns the answer; nullopt if no valid answer arrives within the limit.
std::optional<std::string> exchangeMessage(int connection, const std::string& token,
                                           const std::string& text,
                                           std::chrono::milliseconds limit);

/// A pidfd of the process at the other end, for waitForProcess(). Not open if that process has
/// ended or, before Linux 6.5, if it is in another PID namespace.
FileDescriptor processBehind(int connection);

/// Waits until the process behind the pidfd has ended; false on timeout.
bool waitForProcess(int process, std::chrono::milliseconds limit);

} // namespace quillbox
