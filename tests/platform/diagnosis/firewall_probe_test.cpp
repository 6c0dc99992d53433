#include "platform/diagnosis/firewall_probe.h"
#include "platform/diagnosis/tool_output.h"
#include "tests/platform/desktop/qt_support.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

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

/// A system without ufw, whose `nft` does what the shell code says.
class System final {
public:
    explicit System(const std::string& code)
    {
        std::string pattern = fs::temp_directory_path() / "quillbox-XXXXXX";
        root = ::mkdtemp(pattern.data());
        fs::create_directories(root / "etc/ufw");
        std::ofstream(root / "nft") << "#!/bin/sh\n" << code << '\n';
        fs::permissions(root / "nft", fs::perms::owner_all);
        environment.set("PATH", root.c_str());
    }
    System(const System&) = delete;
    System& operator=(const System&) = delete;
    ~System() { fs::remove_all(root); }

    FirewallFacts probed() const { return probeFirewall(std::chrono::seconds(60), root); }

    fs::path root;

private:
    Environment environment;
};

FirewallFacts probed(const std::string& code)
{
    return System(code).probed();
}

TEST(FirewallProbe, ufwIsUnknownWhereItsConfigurationCannotBeRead)
{
    const System system("exit 1");
    const auto configuration = system.root / "etc/ufw/ufw.conf";
    EXPECT_EQ(system.probed().ufw, Seen::No) << "there is none";
    std::ofstream(configuration) << "ENABLED=yes\n";
    EXPECT_EQ(system.probed().ufw, Seen::Yes);
    fs::remove(configuration);
    fs::create_symlink("ufw.conf", configuration);
    EXPECT_EQ(system.probed().ufw, Seen::Unknown) << "it leads to itself";
    fs::remove(configuration);
    fs::create_directory(configuration);
    EXPECT_EQ(system.probed().ufw, Seen::Unknown) << "it is a folder";
}

/// Calls `work` on a thread that does not see the programs of this computer that set rules. Skips
/// the test where that is not permitted.
void withoutPrograms(const std::function<void()>& work)
{
    bool isPermitted = false;
    std::thread([&] {
        isPermitted = ::unshare(CLONE_NEWNS) == 0
                      && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        for (const char* program : {"nft", "iptables", "iptables-legacy"}) {
            for (auto path = findTool(program); isPermitted && !path.empty();
                 path = findTool(program))
                isPermitted = ::mount("/dev/null", path.c_str(), nullptr, MS_BIND, nullptr) == 0;
        }
        if (isPermitted)
            work();
    }).join();
    if (!isPermitted)
        GTEST_SKIP() << "no permission to hide programs";
}

/// Where nothing can set rules, there are none.
TEST(FirewallProbe, theRulesAreUnknownWithoutNftOnlyIfAnotherProgramMayHaveSetSome)
{
    using Rules = FirewallFacts::Rules;
    const System system("exit 1");
    fs::remove(system.root / "nft");
    withoutPrograms([&] {
        EXPECT_EQ(system.probed().rules, Rules::NoProgram);
        for (const char* program : {"iptables", "iptables-legacy"}) {
            const auto path = system.root / program;
            std::ofstream(path) << "#!/bin/sh\n";
            fs::permissions(path, fs::perms::owner_all);
            EXPECT_EQ(system.probed().rules, Rules::Unknown) << program;
            fs::remove(path);
        }
        std::ofstream(system.root / "etc/ufw/ufw.conf") << "ENABLED=yes\n";
        EXPECT_EQ(system.probed().rules, Rules::Unknown);
    });
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
