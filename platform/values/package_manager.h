#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace quillbox {

/// What the helper works with but does not contain. Each is a package of the system, under a name
/// of the system's own.
enum class Package {
    AvahiDaemon,    ///< file managers list servers through it
    LocalNames,     ///< the name service module for names that end in ".local"
    GvfsSmb,        ///< opens SMB shares in the file managers of GNOME, Xfce, Cinnamon and MATE
    KioSmb,         ///< opens SMB shares in KDE
    GnomeExtension, ///< shows status icons in GNOME
};

/// How packages are installed on this system. A value.
class PackageManager final {
public:
    /// For an unknown system.
    PackageManager() = default;

    /// For the system that an os-release(5) file with this text describes. A system that is not
    /// known itself counts as the first known one of those that it is derived from.
    explicit PackageManager(std::string_view osRelease);

    /// A clause that tells the user what to do, such as "'sudo apt install avahi-daemon'", or
    /// "install avahi" on an unknown system.
    std::string howToInstall(std::initializer_list<Package> packages) const;

    /// The same about avahi-daemon, with libnss-mdns, and about starting it.
    std::string howToRunAvahiDaemon() const;

    bool operator==(const PackageManager&) const = default;

private:
    enum class System { Unknown, Debian, Fedora, Arch, Suse };

    static System systemOf(std::string_view identifier);
    const char* nameOf(Package package) const;

    System system = System::Unknown;
};

} // namespace quillbox
