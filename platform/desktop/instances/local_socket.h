#pragma once

#include "platform/posix/file_descriptor.h"

#include <string>

namespace quillbox {

/// Local stream sockets (AF_UNIX) that are addressed by a folder and a file name. The folder is an
/// open file descriptor, so its path may be of any length and cannot be replaced in between. All
/// sockets are non-blocking and close-on-exec.

/// Creates the socket file and listens. Not open on failure, with the reason in errno.
FileDescriptor listenAt(int folder, const std::string& name);

enum class Reached {
    Connected,
    Busy,   ///< failed for now, for example because the backlog is full
    Nobody, ///< nobody listens there
};

/// Connects; `connection` is open if the result is Connected.
Reached connectTo(int folder, const std::string& name, FileDescriptor& connection);

/// Whether the process at the other end belongs to the same user as this one.
bool isPeerOfSameUser(int connection);

} // namespace quillbox
