#include "platform/diagnosis/name_probe.h"

#include <gtest/gtest.h>

namespace quillbox::diagnosis {

namespace {

TEST(NameProbe, theLineOfHostsIsFound)
{
    EXPECT_EQ(hostsLineIn("passwd: files\n# hosts: x\nhosts:\t files dns # local first\n"),
              "files dns");
    EXPECT_EQ(hostsLineIn("  hosts:files"), "files");
    EXPECT_EQ(hostsLineIn("passwd: files\n"), "");
    EXPECT_EQ(hostsLineIn(""), "");
}

TEST(NameProbe, everyModuleOfMulticastDnsCounts)
{
    for (const char* module : {"mdns", "mdns4", "mdns6", "mdns_minimal", "mdns4_minimal"})
        EXPECT_TRUE(asksMulticastDns(std::string("files ") + module + " dns")) << module;
    EXPECT_FALSE(asksMulticastDns("files dns"));
    EXPECT_FALSE(asksMulticastDns("files resolve [!UNAVAIL=return] dns"));
    EXPECT_FALSE(asksMulticastDns(""));
}

TEST(NameProbe, aNameIsAskedOfMulticastDnsAloneWhereNothingElseGetsIt)
{
    EXPECT_TRUE(isLocalOnly("files mdns4_minimal [NOTFOUND=return] dns"));
    EXPECT_TRUE(isLocalOnly("files myhostname mdns_minimal [NOTFOUND=return] resolve dns"));
    EXPECT_TRUE(isLocalOnly("files mdns4"));
    EXPECT_FALSE(isLocalOnly("files mdns4_minimal dns"));
    EXPECT_FALSE(isLocalOnly("files dns mdns4_minimal [NOTFOUND=return]"));
    EXPECT_FALSE(isLocalOnly("files resolve [!UNAVAIL=return] mdns4_minimal [NOTFOUND=return]"));
    EXPECT_FALSE(isLocalOnly("files dns"));
    EXPECT_FALSE(isLocalOnly(""));
}

} // namespace

} // namespace quillbox::diagnosis
