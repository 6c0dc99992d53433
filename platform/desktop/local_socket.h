#pragma once

#include "platform/posix/file_descriptor.h"

#include <string>

namespace quillbox {

/// Local stream sockets (AF_UNIX) that are named by a folder and a file in it. The folder is given
/// as an open descriptor, so that its path may be of any length and nobody can exchange it. All are
/// non-blocking and are not inherited by other programs.

/// Makes the file and listens. Not open on failure, with the reason in errno.
FileDescriptor listenAt(int folder, const std::string& name);

enum class Reached {
    Connected,
    Busy,   ///< somebody listens, but has no room at present
    Nobody, ///< nobody listens there any more
};

/// Connects; `connection` is open when the answer is Connected.
Reached connectTo(int folder, const std::string& name, FileDescriptor& connection);

/// Whether the process at the other end belongs to the same user as this one.
bool isPeerOfSameUser(int connection);

} // namespace quillbox
