#include "platform/linux/local_names.h"

#include "platform/diagnosis/small_file.h"

#include <cerrno>
#include <string_view>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace quillbox {

namespace {

/// The socket through which libnss-mdns asks avahi-daemon.
constexpr std::string_view kAvahiSocket = "/run/avahi-daemon/socket";

bool isAvahiListening()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    kAvahiSocket.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket < 0)
        return false;
    const bool isConnected =
        ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    // EAGAIN: it is busy with other clients.
    const bool isListening = isConnected || errno == EAGAIN;
    ::close(socket);
    return isListening;
}

} // namespace

NameService systemNameService()
{
    return NameService(diagnosis::readSmallFile("/etc/nsswitch.conf").value_or(""));
}

bool isAvahiAskedForNames()
{
    return systemNameService().localNames() == NameService::LocalNames::Avahi && isAvahiListening();
}

} // namespace quillbox
