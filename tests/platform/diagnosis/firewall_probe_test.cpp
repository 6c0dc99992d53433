#include "platform/diagnosis/firewall_probe.h"
#include "tests/platform/desktop/qt_support.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

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

/// Probes with an `nft` that does what the shell code says.
FirewallFacts probed(const std::string& code)
{
    namespace fs = std::filesystem;
    std::string pattern = fs::temp_directory_path() / "quillbox-XXXXXX";
    const fs::path folder = ::mkdtemp(pattern.data());
    std::ofstream(folder / "nft") << "#!/bin/sh\n" << code << '\n';
    fs::permissions(folder / "nft", fs::perms::owner_all);
    Environment environment;
    environment.set("PATH", folder.c_str());
    const auto facts = probeFirewall(std::chrono::seconds(60));
    fs::remove_all(folder);
    return facts;
}

TEST(FirewallProbe, theRulesAreThoseThatNftLists)
{
    const auto facts = probed(R"([ "$*" = "-j list ruleset" ] && echo '{"nftables": [{"chain": )"
                              R"({"name": "in", "hook": "input", "policy": "drop"}}]}')");
    EXPECT_EQ(facts.rules, FirewallFacts::Rules::Read);
    EXPECT_TRUE(facts.dropsInput);
}

TEST(FirewallProbe, aRefusalIsKnownFromOtherFailures)
{
    using Rules = FirewallFacts::Rules;
    EXPECT_EQ(probed("echo 'Operation not permitted (you must be root)' >&2; exit 1").rules,
              Rules::NotAllowed);
    EXPECT_EQ(probed("echo 'nft: Permission denied' >&2; exit 1").rules, Rules::NotAllowed);
    EXPECT_EQ(probed("echo 'cannot open a socket' >&2; exit 1").rules, Rules::Unknown);
    EXPECT_EQ(probed("echo 'not JSON'").rules, Rules::Unknown);
}

} // namespace

} // namespace quillbox::diagnosis
