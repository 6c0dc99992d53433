#pragma once

#include "platform/posix/file_descriptor.h"

#include <chrono>
#include <optional>
#include <string>

namespace quillbox {

/// The side of the copy that asks. These calls wait, with a limit, and need no event loop. What
/// belongs to another user is not spoken to.

/// Asks the copy behind `connection` to come to the front, and waits for its answer, a second at
/// the most. `token` is the desktop's permission; may be empty.
void requestActivation(int connection, const std::string& token);

/// Sends a message and gives the answer; none when it is not one line within the limit, or longer
/// than an answer may be.
std::optional<std::string> exchangeMessage(int connection, const std::string& token,
                                           const std::string& text,
                                           std::chrono::milliseconds limit);

/// The process behind `connection`, to wait for its end; not open where the system does not tell.
FileDescriptor processBehind(int connection);

/// Waits for the end of such a process; gives whether it has ended.
bool waitForProcess(int process, std::chrono::milliseconds limit);

} // namespace quillbox
