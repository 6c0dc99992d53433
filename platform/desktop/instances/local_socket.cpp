#include "platform/desktop/instances/local_socket.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace quillbox {

namespace {

constexpr int kBacklog = 64;
constexpr mode_t kSocketMode = 0600;

FileDescriptor makeSocket()
{
    return FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

bool makeAddress(int folder, const std::string& name, sockaddr_un& address)
{
    const std::string path = "/proc/self/fd/" + std::to_string(folder) + '/' + name;
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    return true;
}

} // namespace

FileDescriptor listenAt(int folder, const std::string& name)
{
    FileDescriptor socket = makeSocket();
    sockaddr_un address{};
    if (!socket.isOpen() || !makeAddress(folder, name, address))
        return {};
    // bind() creates the file with the socket's mode.
    ::fchmod(socket.get(), kSocketMode);
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0
        || ::listen(socket.get(), kBacklog) != 0)
        return {};
    return socket;
}

Reached connectTo(int folder, const std::string& name, FileDescriptor& connection)
{
    FileDescriptor socket = makeSocket();
    sockaddr_un address{};
    if (!socket.isOpen() || !makeAddress(folder, name, address))
        return Reached::Busy;
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
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
