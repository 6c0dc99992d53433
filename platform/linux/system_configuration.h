#pragma once

#include "platform/values/name_service.h"
#include "platform/values/package_manager.h"

#include <filesystem>
#include <string>

/// What the configuration files below `root` say. In a Flatpak sandbox the usual files are those of
/// the runtime, which is not what the user's other programs run on.
namespace quillbox {

/// Whether this program runs in a Flatpak sandbox.
bool isSandboxed(const std::filesystem::path& root = "/");

/// The package manager of this computer's system; of the host's if this program runs in a sandbox.
PackageManager systemPackageManager(const std::filesystem::path& root = "/");

/// The name service as configured in nsswitch.conf. Unknown in a sandbox.
NameService systemNameService(const std::filesystem::path& root = "/");

/// Whether the program that the name service asks for names that end in ".local" is running.
bool isResolverRunning(const NameService& service);

/// Whether the name service asks a running avahi-daemon for names that end in ".local". Then it
/// resolves the names that DNS-SD found, though perhaps slowly: libnss-mdns first asks a DNS server
/// whether it is responsible for ".local", and that may time out.
bool isAvahiAskedForNames(const NameService& service = systemNameService());

/// Whether a name is resolved to an address of this computer. Blocks until the name service
/// answers, so the caller must bound it. The name may be sent to a DNS server, unless the name
/// service is local only and avahi-daemon is running.
bool isNameOfThisComputer(const std::string& name);

} // namespace quillbox
