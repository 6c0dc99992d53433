#include "app/port_text.h"

#include <gtest/gtest.h>

namespace quillbox {

namespace {

TEST(PortText, readsDecimalNumbersOfSixteenBits)
{
    EXPECT_EQ(parsePort("445"), 445);
    EXPECT_EQ(parsePort("0"), 0);
    EXPECT_EQ(parsePort("65535"), 65535);
    EXPECT_EQ(parsePort("0000000000000000445"), 445);
}

TEST(PortText, takesOneLeadingSign)
{
    EXPECT_EQ(parsePort("+445"), 445);
    EXPECT_EQ(parsePort("+0"), 0);
    EXPECT_EQ(parsePort("++445"), std::nullopt);
    EXPECT_EQ(parsePort("+-0"), std::nullopt);
}

TEST(PortText, behindAMinusSignOnlyZeroFits)
{
    EXPECT_EQ(parsePort("-0"), 0);
    EXPECT_EQ(parsePort("-000"), 0);
    EXPECT_EQ(parsePort("-1"), std::nullopt);
    EXPECT_EQ(parsePort("-445"), std::nullopt);
}

TEST(PortText, refusesWhatDoesNotFit)
{
    EXPECT_EQ(parsePort("65536"), std::nullopt);
    EXPECT_EQ(parsePort("70000"), std::nullopt);
    EXPECT_EQ(parsePort("4294967741"), std::nullopt);           // 445 modulo 2^32
    EXPECT_EQ(parsePort("18446744073709552061"), std::nullopt); // 445 modulo 2^64
}

TEST(PortText, refusesEverythingElse)
{
    for (const char* text : {"", "+", "-", " 445", "445 ", "445\n", "4 45", "0x1bd", "44.5", "smb",
                             "\u0664\u0664\u0665", "445\u00a0"})
        EXPECT_EQ(parsePort(text), std::nullopt) << text;
    EXPECT_EQ(parsePort(std::string_view("445\0", 4)), std::nullopt);
}

} // namespace

} // namespace quillbox
