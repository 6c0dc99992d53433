#include "platform/diagnosis/firewall_probe.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace quillbox::diagnosis {

namespace {

namespace fs = std::filesystem;

TEST(FirewallProbe, ufwIsOnWhereItsConfigurationSaysYes)
{
    EXPECT_EQ(ufwIn("# /etc/ufw/ufw.conf\n\nENABLED=yes\nLOGLEVEL=low\n"), Seen::Yes);
    EXPECT_EQ(ufwIn("ENABLED=\"yes\""), Seen::Yes);
    EXPECT_EQ(ufwIn("  ENABLED = yes\r\n"), Seen::Yes);
}

TEST(FirewallProbe, ufwIsOffOtherwise)
{
    EXPECT_EQ(ufwIn("ENABLED=no\n"), Seen::No);
    EXPECT_EQ(ufwIn("ENABLED=maybe\n"), Seen::No);
    EXPECT_EQ(ufwIn("# ENABLED=yes\n"), Seen::No);
    EXPECT_EQ(ufwIn("LOGLEVEL=low\n"), Seen::No);
    EXPECT_EQ(ufwIn(""), Seen::No);
}

TEST(FirewallProbe, ufwIsUnknownWhereItsConfigurationCannotBeRead)
{
    std::string pattern = fs::temp_directory_path() / "quillbox-XXXXXX";
    const fs::path root = ::mkdtemp(pattern.data());
    const auto configuration = root / "etc/ufw/ufw.conf";
    fs::create_directories(configuration.parent_path());
    EXPECT_EQ(probeUfw(root), Seen::No) << "there is none";
    std::ofstream(configuration) << "ENABLED=yes\n";
    EXPECT_EQ(probeUfw(root), Seen::Yes);
    fs::remove(configuration);
    fs::create_symlink("ufw.conf", configuration);
    EXPECT_EQ(probeUfw(root), Seen::Unknown) << "it leads to itself";
    fs::remove(configuration);
    fs::create_directory(configuration);
    EXPECT_EQ(probeUfw(root), Seen::Unknown) << "it is a folder";
    fs::remove_all(root);
}

} // namespace

} // namespace quillbox::diagnosis
