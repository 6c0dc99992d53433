#include "platform/linux/system_configuration.h"

#include "platform/diagnosis/small_file.h"
#include "platform/posix/local_listener.h"

#include <initializer_list>
#include <system_error>

#include <netdb.h>
#include <sys/socket.h>

namespace quillbox {

namespace {

namespace fs = std::filesystem;

// The socket through which libnss-mdns asks.
constexpr const char* kAvahiSocket = "/run/avahi-daemon/socket";

/// The text of the first of these files that there is; empty if there is none.
std::string firstText(const fs::path& root, std::initializer_list<const char*> files)
{
    for (const char* file : files) {
        if (auto text = diagnosis::readSmallFile(root / file))
            return *text;
    }
    return {};
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

bool isAvahiAskedForNames(const NameService& service)
{
    return service.localNames() == NameService::LocalNames::Avahi && isListening(kAvahiSocket);
}

bool isNameFound(const std::string& name)
{
    const addrinfo anyAddress{};
    addrinfo* first = nullptr;
    if (::getaddrinfo(name.c_str(), nullptr, &anyAddress, &first) != 0)
        return false;
    ::freeaddrinfo(first);
    return true;
}

} // namespace quillbox
