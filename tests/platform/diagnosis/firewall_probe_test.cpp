#include "platform/diagnosis/desktop_probes.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace quillbox::diagnosis {

namespace {

namespace fs = std::filesystem;

class FirewallProbe : public ::testing::Test {
protected:
    FirewallProbe()
    {
        std::string pattern = fs::temp_directory_path() / "quillbox-XXXXXX";
        root = ::mkdtemp(pattern.data());
        fs::create_directories(configuration().parent_path());
    }
    ~FirewallProbe() override { fs::remove_all(root); }

    fs::path configuration() const { return root / "etc/ufw/ufw.conf"; }

    Seen ufwIn(const char* text) const
    {
        std::ofstream(configuration()) << text;
        return probeUfw(root);
    }

    fs::path root;
};

TEST_F(FirewallProbe, ufwIsOnWhereItsConfigurationSaysYes)
{
    EXPECT_EQ(ufwIn("# /etc/ufw/ufw.conf\n\nENABLED=yes\nLOGLEVEL=low\n"), Seen::Yes);
    EXPECT_EQ(ufwIn("ENABLED=\"yes\""), Seen::Yes);
    EXPECT_EQ(ufwIn("  ENABLED = yes\r\n"), Seen::Yes);
}

TEST_F(FirewallProbe, ufwIsOffOtherwise)
{
    EXPECT_EQ(ufwIn("ENABLED=no\n"), Seen::No);
    EXPECT_EQ(ufwIn("ENABLED=maybe\n"), Seen::No);
    EXPECT_EQ(ufwIn("# ENABLED=yes\n"), Seen::No);
    EXPECT_EQ(ufwIn("LOGLEVEL=low\n"), Seen::No);
    EXPECT_EQ(ufwIn(""), Seen::No);
}

TEST_F(FirewallProbe, ufwIsUnknownWhereItsConfigurationCannotBeRead)
{
    EXPECT_EQ(probeUfw(root), Seen::No) << "there is none";
    fs::create_symlink("ufw.conf", configuration());
    EXPECT_EQ(probeUfw(root), Seen::Unknown) << "it leads to itself";
    fs::remove(configuration());
    fs::create_directory(configuration());
    EXPECT_EQ(probeUfw(root), Seen::Unknown) << "it is a folder";
}

} // namespace

} // namespace quillbox::diagnosis
