#include "platform/dnssd/operations/names.h"
#include "platform/values/text.h"

#include <gtest/gtest.h>

namespace quillbox::dnssd {

TEST(Names, areOneTo63BytesOfUtf8)
{
    EXPECT_TRUE(isInstanceName("Quillbox Office"));
    EXPECT_TRUE(isInstanceName(std::string(63, 'x')));
    EXPECT_FALSE(isInstanceName(std::string(64, 'x')));
    EXPECT_FALSE(isInstanceName(""));
    EXPECT_FALSE(isInstanceName("a\xff"
                                "b"));
    EXPECT_FALSE(isInstanceName("\xed\xa0\x80")) << "a surrogate";
    EXPECT_FALSE(isInstanceName("\xc0\xaf")) << "an overlong form";
    EXPECT_FALSE(isInstanceName("\xe2\x82")) << "a truncated character";
    EXPECT_FALSE(isInstanceName(std::string("a\0b", 3)));
    EXPECT_TRUE(isInstanceName("a.b\\c\n<i>\xe2\x80\xae%n\xe2\x80\xac"));
}

TEST(Names, ofTypesAreAServiceAndAProtocol)
{
    EXPECT_TRUE(isServiceType("_smb._tcp"));
    EXPECT_TRUE(isServiceType("_quillbox-admin._TCP"));
    EXPECT_TRUE(isServiceType("_x._udp"));
    for (const char* type : {"", "smb", "_smb", "_smb.", "_._tcp", "smb._tcp", "_smb._sctp",
                             "_s b._tcp", "_smb._tcp.local", "_a._b._tcp"})
        EXPECT_FALSE(isServiceType(type)) << type;
    EXPECT_FALSE(isServiceType("_" + std::string(63, 'a') + "._tcp"));
}

TEST(Names, compareWithoutTheCaseOfAsciiLettersOnly)
{
    EXPECT_TRUE(isSameName("_SMB._tcp", "_smb._TCP"));
    EXPECT_FALSE(isSameName("\xc3\x84", "\xc3\xa4"));
    EXPECT_FALSE(isSameName("a", "ab"));
    EXPECT_EQ(folded("Quill\xc3\x84"), "quill\xc3\x84");
}

TEST(Names, growANumberThatFits)
{
    EXPECT_EQ(alternativeName("Quillbox", 1), "Quillbox");
    EXPECT_EQ(alternativeName("Quillbox", 2), "Quillbox #2");
    EXPECT_EQ(alternativeName("Quillbox", 13), "Quillbox #13");
    EXPECT_EQ(alternativeName(std::string(63, 'x'), 2), std::string(60, 'x') + " #2");
}

TEST(Names, areCutBetweenCharacters)
{
    // 63 bytes: 15 characters of four bytes and one of three.
    std::string name;
    for (int i = 0; i < 15; ++i)
        name += "\xf0\x9f\x93\xb1";
    name += "\xe2\x82\xac";
    ASSERT_EQ(name.size(), 63U);
    const std::string second = alternativeName(name, 2);
    EXPECT_EQ(second, name.substr(0, 60) + " #2");
    EXPECT_TRUE(isInstanceName(second));
    const std::string tenth = alternativeName(name, 10);
    EXPECT_EQ(tenth, name.substr(0, 56) + " #10");
    EXPECT_TRUE(isInstanceName(tenth));
}

TEST(Names, startOverAfterTheHighestNumber)
{
    EXPECT_EQ(numberAfter(1), 2U);
    EXPECT_EQ(numberAfter(99'998), 99'999U);
    EXPECT_EQ(numberAfter(99'999), 2U);
}

TEST(Names, becomeHostLabels)
{
    EXPECT_EQ(hostSlug("Quillbox Office", 24), "quillbox-office");
    EXPECT_EQ(hostSlug("  a..b  ", 24), "a-b");
    EXPECT_EQ(hostSlug("\xc3\x9c", 24), "u");
    EXPECT_EQ(hostSlug("Cafe\xcc\x81 Stra\xc3\x9f"
                       "e",
                       24),
              "cafe-strasse");
    EXPECT_EQ(hostSlug("\xef\xac\x81rst \xe2\x91\xa0", 24), "first-1");
    EXPECT_EQ(hostSlug("\xd0\x9a\xd1\x83", 24), "");
    EXPECT_EQ(hostSlug("a\xff\xfe"
                       "b",
                       24),
              "a-b");
    EXPECT_EQ(hostSlug("abc def", 4), "abc");
}

} // namespace quillbox::dnssd
