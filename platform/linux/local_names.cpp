#include "platform/linux/local_names.h"

#include "platform/diagnosis/small_file.h"

#include <cerrno>
#include <string_view>

#include <netdb.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace quillbox {

namespace {

using LocalNames = NameService::LocalNames;

// The sockets through which libnss-mdns and nss-resolve ask.
constexpr std::string_view kAvahiSocket = "/run/avahi-daemon/socket";
constexpr std::string_view kResolvedSocket = "/run/systemd/resolve/io.systemd.Resolve";

bool isListening(std::string_view path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket < 0)
        return false;
    const bool isConnected =
        ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    // EAGAIN: it is busy with other clients.
    const bool isOpen = isConnected || errno == EAGAIN;
    ::close(socket);
    return isOpen;
}

} // namespace

NameService systemNameService()
{
    return NameService(diagnosis::readSmallFile("/etc/nsswitch.conf").value_or(""));
}

bool isAskedProgramRunning(const NameService& service)
{
    switch (service.localNames()) {
    case LocalNames::Avahi:
        return isListening(kAvahiSocket);
    case LocalNames::Resolved:
        return isListening(kResolvedSocket);
    case LocalNames::Nowhere:
        break;
    }
    return false;
}

bool isAvahiAskedForNames()
{
    const NameService service = systemNameService();
    return service.localNames() == LocalNames::Avahi && isAskedProgramRunning(service);
}

bool isNameFound(const std::string& name)
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* first = nullptr;
    if (::getaddrinfo(name.c_str(), nullptr, &hints, &first) != 0)
        return false;
    ::freeaddrinfo(first);
    return true;
}

} // namespace quillbox
