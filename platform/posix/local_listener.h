#pragma once

#include "platform/posix/file_descriptor.h"

#include <cerrno>
#include <string_view>

#include <sys/socket.h>
#include <sys/un.h>

namespace quillbox {

/// Whether a program listens on the Unix domain socket at `path`, and this user may connect to it:
/// connects and disconnects again. Does not block.
inline bool isListening(std::string_view path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return false;
    path.copy(address.sun_path, path.size());
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.isOpen())
        return false;
    // EAGAIN: it is busy with other clients (unix(7)).
    return ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0
           || errno == EAGAIN;
}

} // namespace quillbox
