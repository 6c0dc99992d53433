#include "platform/linux/system_configuration.h"

#include "platform/diagnosis/small_file.h"
#include "platform/posix/file_descriptor.h"
#include "platform/posix/local_listener.h"

#include <initializer_list>
#include <system_error>

#include <netdb.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

namespace fs = std::filesystem;

// The sockets through which libnss-mdns and nss-resolve(8) ask.
constexpr const char* kAvahiSocket = "/run/avahi-daemon/socket";
constexpr const char* kResolvedSocket = "/run/systemd/resolve/io.systemd.Resolve";

/// The text of the first of these files that there is; empty if there is none.
std::string firstText(const fs::path& root, std::initializer_list<const char*> files)
{
    for (const char* file : files) {
        if (auto text = diagnosis::readSmallFile(root / file))
            return *text;
    }
    return {};
}

/// Only an own address can be bound to.
bool isOwnAddress(const addrinfo& found)
{
    const FileDescriptor socket(::socket(found.ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return ::bind(socket.get(), found.ai_addr, found.ai_addrlen) == 0;
}

} // namespace

bool isSandboxed(const fs::path& root)
{
    std::error_code error;
    return fs::exists(root / ".flatpak-info", error);
}

PackageManager systemPackageManager(const fs::path& root)
{
    if (isSandboxed(root))
        return PackageManager(firstText(root, {"run/host/os-release"}));
    return PackageManager(firstText(root, {"etc/os-release", "usr/lib/os-release"}));
}

NameService systemNameService(const fs::path& root)
{
    if (isSandboxed(root))
        return {};
    // In openSUSE the second one is the system's own, and the first one the administrator's.
    return NameService(firstText(root, {"etc/nsswitch.conf", "usr/etc/nsswitch.conf"}));
}

bool isResolverRunning(const NameService& service)
{
    switch (service.localNames()) {
    case NameService::LocalNames::Avahi:
        return isListening(kAvahiSocket);
    case NameService::LocalNames::Resolved:
        return isListening(kResolvedSocket);
    case NameService::LocalNames::Unknown:
    case NameService::LocalNames::Nowhere:
        break;
    }
    return false;
}

bool isAvahiAskedForNames(const NameService& service)
{
    return service.localNames() == NameService::LocalNames::Avahi && isResolverRunning(service);
}

bool isNameOfThisComputer(const std::string& name)
{
    const addrinfo anyAddress{};
    addrinfo* first = nullptr;
    if (::getaddrinfo(name.c_str(), nullptr, &anyAddress, &first) != 0)
        return false;
    bool isOwn = false;
    for (const addrinfo* each = first; each != nullptr && !isOwn; each = each->ai_next)
        isOwn = isOwnAddress(*each);
    ::freeaddrinfo(first);
    return isOwn;
}

} // namespace quillbox
