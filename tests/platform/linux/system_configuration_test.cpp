#include "platform/linux/system_configuration.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

namespace fs = std::filesystem;
using LocalNames = NameService::LocalNames;

constexpr const char* kWithAvahi = "hosts: files mdns4_minimal [NOTFOUND=return] dns\n";
constexpr const char* kWithResolved = "hosts: files resolve [!UNAVAIL=return] dns\n";

/// The files of a system, in a folder of their own.
class SystemConfiguration : public ::testing::Test {
protected:
    SystemConfiguration()
    {
        std::string pattern = fs::temp_directory_path() / "quillbox-XXXXXX";
        root = ::mkdtemp(pattern.data());
    }
    ~SystemConfiguration() override { fs::remove_all(root); }

    void add(const char* path, const char* text) const
    {
        fs::create_directories((root / path).parent_path());
        std::ofstream(root / path) << text;
    }

    LocalNames localNames() const { return systemNameService(root).localNames(); }

    fs::path root;
};

TEST_F(SystemConfiguration, ofNamesIsTheSystemsOwnUnlessTheAdministratorWroteOne)
{
    EXPECT_EQ(localNames(), LocalNames::Nowhere);
    add("usr/etc/nsswitch.conf", kWithAvahi);
    EXPECT_EQ(localNames(), LocalNames::Avahi);
    add("etc/nsswitch.conf", kWithResolved);
    EXPECT_EQ(localNames(), LocalNames::Resolved);
}

TEST_F(SystemConfiguration, ofNamesIsNotThatOfASandbox)
{
    add("etc/nsswitch.conf", kWithAvahi);
    add(".flatpak-info", "[Application]\n");
    EXPECT_EQ(localNames(), LocalNames::Unknown);
}

TEST_F(SystemConfiguration, ofPackagesIsThatOfTheHostOfASandbox)
{
    EXPECT_EQ(systemPackageManager(root), PackageManager());
    add("usr/lib/os-release", "ID=fedora\n");
    EXPECT_EQ(systemPackageManager(root), PackageManager("ID=fedora"));
    add("etc/os-release", "ID=debian\n");
    EXPECT_EQ(systemPackageManager(root), PackageManager("ID=debian"));
    add(".flatpak-info", "[Application]\n");
    EXPECT_EQ(systemPackageManager(root), PackageManager());
    add("run/host/os-release", "ID=arch\n");
    EXPECT_EQ(systemPackageManager(root), PackageManager("ID=arch"));
}

} // namespace

} // namespace quillbox
