#include "platform/values/package_manager.h"

#include "platform/values/text.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace quillbox {

namespace {

/// The words in the value of a variable (os-release(5)). Identifiers contain no characters that a
/// shell would interpret, so quotes are the only ones to remove.
std::string wordsOf(std::string_view osRelease, std::string_view variable)
{
    std::string words;
    while (!osRelease.empty()) {
        const std::string_view line = takeLine(osRelease);
        if (line.size() > variable.size() && line.starts_with(variable)
            && line[variable.size()] == '=')
            words = line.substr(variable.size() + 1);
    }
    std::replace_if(
        words.begin(), words.end(),
        [](char character) { return character == '"' || character == '\'' || character == '\r'; },
        ' ');
    return words;
}

} // namespace

PackageManager::PackageManager(std::string_view osRelease)
{
    const std::string identifiers = wordsOf(osRelease, "ID") + ' ' + wordsOf(osRelease, "ID_LIKE");
    for (std::string_view rest = identifiers; !rest.empty() && system == System::Unknown;)
        system = systemOf(takePart(rest, ' '));
}

PackageManager::System PackageManager::systemOf(std::string_view identifier)
{
    if (identifier == "debian" || identifier == "ubuntu")
        return System::Debian;
    if (identifier == "fedora" || identifier == "rhel" || identifier == "centos")
        return System::Fedora;
    if (identifier == "arch")
        return System::Arch;
    // Their identifiers are "opensuse-tumbleweed", "opensuse-leap" and so on.
    if (identifier.starts_with("opensuse") || identifier == "suse")
        return System::Suse;
    return System::Unknown;
}

const char* PackageManager::nameOf(Package package) const
{
    // In the order of System.
    using Names = std::array<const char*, 5>;
    constexpr Names kAvahi{"avahi", "avahi-daemon", "avahi", "avahi", "avahi"};
    constexpr Names kLocalNames{"nss-mdns", "libnss-mdns", "nss-mdns", "nss-mdns", "nss-mdns"};
    constexpr Names kGvfsSmb{"gvfs-smb", "gvfs-backends", "gvfs-smb", "gvfs-smb",
                             "gvfs-backend-samba"};
    const auto place = static_cast<std::size_t>(system);
    switch (package) {
    case Package::AvahiDaemon:
        return kAvahi.at(place);
    case Package::LocalNames:
        return kLocalNames.at(place);
    case Package::GvfsSmb:
        return kGvfsSmb.at(place);
    case Package::KioSmb:
        return "kio-extras";
    case Package::GnomeExtension:
        break;
    }
    return "gnome-shell-extension-appindicator";
}

std::string PackageManager::howToInstall(std::initializer_list<Package> packages) const
{
    constexpr std::array kCommands{"", "sudo apt install", "sudo dnf install", "sudo pacman -S",
                                   "sudo zypper install"};
    const bool isKnown = system != System::Unknown;
    std::string names;
    for (const Package each : packages) {
        if (!names.empty())
            names += isKnown ? " " : " and ";
        names += nameOf(each);
    }
    if (!isKnown)
        return "install " + names;
    return std::string("'") + kCommands.at(static_cast<std::size_t>(system)) + ' ' + names + '\'';
}

std::string PackageManager::howToRunAvahiDaemon() const
{
    return howToInstall({Package::AvahiDaemon, Package::LocalNames})
           + ", then 'sudo systemctl enable --now avahi-daemon'";
}

} // namespace quillbox
