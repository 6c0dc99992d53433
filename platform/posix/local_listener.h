#pragma once

#include "platform/posix/file_descriptor.h"

#include <cerrno>
#include <string_view>

#include <sys/socket.h>
#include <sys/un.h>

namespace quillbox {

/// A stream socket of the Unix domain: non-blocking and close-on-exec.
inline FileDescriptor makeLocalSocket()
{
    return FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

/// Calls bind(2) or connect(2) with the path as the address; ENAMETOOLONG if it does not fit.
template <typename Call>
bool callWithAddress(const Call& call, const FileDescriptor& socket, std::string_view path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    path.copy(address.sun_path, path.size());
    return call(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

/// Whether a program listens on the Unix domain socket at `path`, and this user may connect to it:
/// connects and disconnects again. Does not block.
inline bool isListening(std::string_view path)
{
    // EAGAIN: it is busy with other clients (unix(7)).
    const FileDescriptor socket = makeLocalSocket();
    return socket.isOpen() && (callWithAddress(::connect, socket, path) || errno == EAGAIN);
}

} // namespace quillbox
