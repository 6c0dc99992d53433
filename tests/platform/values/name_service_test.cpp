#include "platform/values/name_service.h"

#include <string>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using LocalNames = NameService::LocalNames;

NameService withHosts(const std::string& line)
{
    return NameService("passwd: files\nhosts: " + line + "\nnetworks: files\n");
}

TEST(NameService, readsTheLineOfHosts)
{
    for (const char* text :
         {"passwd: files\n# hosts: dns\nhosts:\t files mdns4 # local first\n", "  hosts:mdns4",
          "hosts: files mdns4\r\n", "hosts: files mdns4\nhosts: files dns\n"})
        EXPECT_EQ(NameService(text).localNames(), LocalNames::Avahi) << text;
    for (const char* text : {"", "hosts:", "passwd: mdns4\n", "hosts: files # mdns4", "hosts"})
        EXPECT_EQ(NameService(text).localNames(), LocalNames::Nowhere) << text;
    EXPECT_EQ(NameService().localNames(), LocalNames::Unknown);
}

TEST(NameService, asksAvahiThroughEveryModuleOfMulticastDns)
{
    for (const char* module :
         {"mdns", "mdns4", "mdns6", "mdns_minimal", "mdns4_minimal", "mdns6_minimal"})
        EXPECT_EQ(withHosts(std::string("files ") + module + " dns").localNames(),
                  LocalNames::Avahi)
            << module;
}

TEST(NameService, asksTheModulesThatAreReached)
{
    // The defaults of Debian, Fedora and Arch.
    EXPECT_EQ(withHosts("files mdns4_minimal [NOTFOUND=return] dns").localNames(),
              LocalNames::Avahi);
    EXPECT_EQ(withHosts("files myhostname mdns4_minimal [NOTFOUND=return] resolve "
                        "[!UNAVAIL=return] dns")
                  .localNames(),
              LocalNames::Avahi);
    EXPECT_EQ(withHosts("mymachines resolve [!UNAVAIL=return] files myhostname dns").localNames(),
              LocalNames::Resolved);

    EXPECT_EQ(withHosts("files resolve dns").localNames(), LocalNames::Resolved);
    EXPECT_EQ(withHosts("files resolve mdns4").localNames(), LocalNames::Avahi);
    EXPECT_EQ(withHosts("resolve [!UNAVAIL=return] mdns4").localNames(), LocalNames::Resolved);

    EXPECT_EQ(withHosts("files dns mdns4").localNames(), LocalNames::Avahi);
    EXPECT_EQ(withHosts("files dns").localNames(), LocalNames::Nowhere);
    EXPECT_EQ(withHosts("files dns [NOTFOUND=return] mdns4").localNames(), LocalNames::Nowhere);
    EXPECT_EQ(withHosts("files dns [!UNAVAIL=return] mdns4").localNames(), LocalNames::Nowhere);
    EXPECT_EQ(withHosts("files dns[ UNAVAIL=continue  notfound=RETURN ]mdns4").localNames(),
              LocalNames::Nowhere);
    EXPECT_EQ(withHosts("files dns [!NOTFOUND=return] mdns4").localNames(), LocalNames::Avahi);
    EXPECT_EQ(withHosts("files dns [UNAVAIL=return SUCCESS=return] mdns4").localNames(),
              LocalNames::Avahi);
    EXPECT_EQ(withHosts("[NOTFOUND=return] mdns4 [").localNames(), LocalNames::Avahi);
}

TEST(NameService, isLocalOnlyWhereOnlyAvahiIsAsked)
{
    for (const char* line :
         {"files mdns4_minimal [NOTFOUND=return] dns",
          "files myhostname mdns_minimal [NOTFOUND=return] resolve dns", "files mdns4"})
        EXPECT_TRUE(withHosts(line).isLocalOnly()) << line;
    for (const char* line :
         {"files mdns4_minimal dns", "files dns mdns4_minimal [NOTFOUND=return]",
          "files resolve dns", "files resolve mdns4", "mymachines resolve [!UNAVAIL=return] dns",
          "files wins mdns4", "files dns", ""})
        EXPECT_FALSE(withHosts(line).isLocalOnly()) << line;
}

} // namespace

} // namespace quillbox
