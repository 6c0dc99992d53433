#include "platform/linux/system_package_manager.h"

#include "platform/diagnosis/small_file.h"

#include <filesystem>

namespace quillbox {

PackageManager systemPackageManager()
{
    std::error_code error;
    // In the sandbox the usual files describe the runtime, into which the user installs nothing.
    if (std::filesystem::exists("/.flatpak-info", error))
        return PackageManager(diagnosis::readSmallFile("/run/host/os-release").value_or(""));
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        if (const auto text = diagnosis::readSmallFile(path))
            return PackageManager(*text);
    }
    return {};
}

} // namespace quillbox
