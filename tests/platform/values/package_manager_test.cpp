#include "platform/values/package_manager.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

constexpr Package kAll[] = {Package::AvahiDaemon, Package::LocalNames, Package::GvfsSmb,
                            Package::KioSmb, Package::GnomeExtension};

std::vector<std::string> everythingOn(const char* osRelease)
{
    std::vector<std::string> advice;
    for (const Package each : kAll)
        advice.push_back(PackageManager(osRelease).howToInstall({each}));
    return advice;
}

using Advice = std::vector<std::string>;

TEST(PackageManager, DebianAndUbuntuUseApt)
{
    const Advice expected{"'sudo apt install avahi-daemon'", "'sudo apt install libnss-mdns'",
                          "'sudo apt install gvfs-backends'", "'sudo apt install kio-extras'",
                          "'sudo apt install gnome-shell-extension-appindicator'"};

    EXPECT_EQ(everythingOn("PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nID=debian\n"),
              expected);
    EXPECT_EQ(everythingOn("ID=ubuntu\nID_LIKE=debian\n"), expected);
}

TEST(PackageManager, FedoraUsesDnf)
{
    EXPECT_EQ(everythingOn("NAME=\"Fedora Linux\"\nID=fedora\nVERSION_ID=41\n"),
              (Advice{"'sudo dnf install avahi'", "'sudo dnf install nss-mdns'",
                      "'sudo dnf install gvfs-smb'", "'sudo dnf install kio-extras'",
                      "'sudo dnf install gnome-shell-extension-appindicator'"}));
}

TEST(PackageManager, ArchUsesPacman)
{
    EXPECT_EQ(everythingOn("NAME=\"Arch Linux\"\nID=arch\n"),
              (Advice{"'sudo pacman -S avahi'", "'sudo pacman -S nss-mdns'",
                      "'sudo pacman -S gvfs-smb'", "'sudo pacman -S kio-extras'",
                      "'sudo pacman -S gnome-shell-extension-appindicator'"}));
}

TEST(PackageManager, OpenSuseUsesZypper)
{
    EXPECT_EQ(
        everythingOn("ID=\"opensuse-leap\"\nID_LIKE=\"suse opensuse\"\n"),
        (Advice{"'sudo zypper install avahi'", "'sudo zypper install nss-mdns'",
                "'sudo zypper install gvfs-backend-samba'", "'sudo zypper install kio-extras'",
                "'sudo zypper install gnome-shell-extension-appindicator'"}));
}

TEST(PackageManager, AnUnknownSystemGetsOnlyTheNames)
{
    const Advice expected{"install avahi", "install nss-mdns", "install gvfs-smb",
                          "install kio-extras", "install gnome-shell-extension-appindicator"};

    for (const char* each : {"", "ID=\n", "ID=slackware\nID_LIKE=\n", "XID=debian\n",
                             "# ID=debian\n", "ID", "ID=debianish"})
        EXPECT_EQ(everythingOn(each), expected) << each;
    EXPECT_EQ(PackageManager(), PackageManager(""));
}

TEST(PackageManager, ADerivedSystemCountsAsTheFirstKnownOneThatItIsLike)
{
    const auto avahiOn = [](const char* osRelease) {
        return PackageManager(osRelease).howToInstall({Package::AvahiDaemon});
    };

    EXPECT_EQ(avahiOn("ID=linuxmint\nID_LIKE=\"ubuntu debian\"\n"),
              "'sudo apt install avahi-daemon'");
    EXPECT_EQ(avahiOn("ID=\"rocky\"\nID_LIKE=\"rhel centos fedora\"\n"),
              "'sudo dnf install avahi'");
    EXPECT_EQ(avahiOn("ID_LIKE='whatever arch'\r\nID=endeavouros\r\n"), "'sudo pacman -S avahi'");
    EXPECT_EQ(avahiOn("ID=\"opensuse-tumbleweed\"\n"), "'sudo zypper install avahi'");
    EXPECT_EQ(avahiOn("ID=\"sles\"\nID_LIKE=\"suse\"\n"), "'sudo zypper install avahi'");
}

TEST(PackageManager, OnlyItsIdentifiersTellASystem)
{
    EXPECT_EQ(PackageManager("ID=debian\nIDX=fedora\n"), PackageManager("ID=debian"));
    EXPECT_EQ(PackageManager("ID=debian\nXX=fedora\n"), PackageManager("ID=debian"));
    EXPECT_EQ(PackageManager("ID=centos"), PackageManager("ID=fedora"));
}

TEST(PackageManager, TheLastOfTwoAssignmentsCounts)
{
    EXPECT_EQ(PackageManager("ID=arch\nID=fedora"), PackageManager("ID=fedora"));
}

TEST(PackageManager, SeveralPackagesAreInstalledTogether)
{
    EXPECT_EQ(PackageManager("ID=debian").howToInstall({Package::AvahiDaemon, Package::LocalNames}),
              "'sudo apt install avahi-daemon libnss-mdns'");
    EXPECT_EQ(PackageManager().howToInstall({Package::AvahiDaemon, Package::LocalNames}),
              "install avahi and nss-mdns");
}

} // namespace

} // namespace quillbox
