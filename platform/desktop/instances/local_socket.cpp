#include "platform/desktop/instances/local_socket.h"

#include "platform/posix/local_listener.h"

#include <sys/stat.h>

namespace quillbox {

namespace {

constexpr int kBacklog = 64;
constexpr mode_t kSocketMode = 0600;

std::string pathOf(int folder, const std::string& name)
{
    return "/proc/self/fd/" + std::to_string(folder) + '/' + name;
}

} // namespace

FileDescriptor listenAt(int folder, const std::string& name)
{
    FileDescriptor socket = makeLocalSocket();
    if (!socket.isOpen())
        return {};
    // bind() creates the file with the socket's mode.
    ::fchmod(socket.get(), kSocketMode);
    if (!callWithAddress(::bind, socket, pathOf(folder, name))
        || ::listen(socket.get(), kBacklog) != 0)
        return {};
    return socket;
}

Reached connectTo(int folder, const std::string& name, FileDescriptor& connection)
{
    FileDescriptor socket = makeLocalSocket();
    if (!socket.isOpen())
        return Reached::Busy;
    if (callWithAddress(::connect, socket, pathOf(folder, name))) {
        connection = std::move(socket);
        return Reached::Connected;
    }
    // Only these two mean that nobody listens; other errors may be a shortage in this process.
    return errno == ECONNREFUSED || errno == ENOENT ? Reached::Nobody : Reached::Busy;
}

bool isPeerOfSameUser(int connection)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0
           && peer.uid == ::geteuid();
}

} // namespace quillbox
