#include "platform/diagnosis/firewall_probe.h"

#include <gtest/gtest.h>

namespace quillbox::diagnosis {

namespace {

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

} // namespace

} // namespace quillbox::diagnosis
