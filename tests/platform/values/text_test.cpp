#include "platform/values/text.h"

#include <set>
#include <string>

#include <gtest/gtest.h>

namespace quillbox {
namespace {

constexpr const char* kComposed = "\xc3\xa9";    // é
constexpr const char* kDecomposed = "e\xcc\x81"; // e and a combining acute accent

TEST(Text, comparesUnderCanonicalEquivalence)
{
    EXPECT_TRUE(canonicallyEqual(kComposed, kDecomposed));
    EXPECT_TRUE(canonicallyEqual("", ""));
    EXPECT_FALSE(canonicallyEqual("A", "a"));
    EXPECT_FALSE(canonicallyEqual("\xef\xac\x81", "fi")); // compatibility equivalence only
}

TEST(Text, leavesWhatIsNotUtf8AsItIs)
{
    EXPECT_EQ(normalized("\xff\xfe"), "\xff\xfe");
    EXPECT_FALSE(canonicallyEqual("\xff", "\xfe"));
    EXPECT_EQ(trimmed(" \xff "), "\xff");
}

TEST(Text, knowsUtf8FromWhatOnlyLooksLikeIt)
{
    EXPECT_TRUE(isValidUtf8(""));
    EXPECT_TRUE(isValidUtf8("a\xc3\xa9\xf0\x9f\x93\xb1"));
    EXPECT_FALSE(isValidUtf8("\xff"));
    EXPECT_FALSE(isValidUtf8("a\xe2\x82"));
    EXPECT_FALSE(isValidUtf8("\xed\xa0\x80")); // a surrogate
    EXPECT_FALSE(isValidUtf8("\xc0\xaf"));     // overlong
}

TEST(Text, hasTheHashThatFnvPublishes)
{
    EXPECT_EQ(stableHash(""), 0xcbf29ce484222325U);
    EXPECT_EQ(stableHash("a"), 0xaf63dc4c8601ec8cU);
    EXPECT_EQ(stableHash("foobar"), 0x85944171f73967e8U);
}

TEST(Text, losesItsMarks)
{
    EXPECT_EQ(withoutMarks("Caf\xc3\xa9 CAFE\xcc\x81"), "cafe cafe");
    EXPECT_EQ(withoutMarks("Stra\xc3\x9f"
                           "e \xef\xac\x81"),
              "strasse fi");
    EXPECT_EQ(withoutMarks("\xd0\x96"), "\xd0\xb6"); // Ж, ж
    EXPECT_EQ(withoutMarks("A\xff"), "A\xff");
}

TEST(Text, isTruncatedBetweenCharacters)
{
    EXPECT_EQ(truncated("abc", 3), "abc");
    EXPECT_EQ(truncated("abc", 2), "ab");
    EXPECT_EQ(truncated("a\xf0\x9f\x93\xb1", 4), "a");
    EXPECT_EQ(truncated("a\xf0\x9f\x93\xb1", 5), "a\xf0\x9f\x93\xb1");
    EXPECT_EQ(truncated("\xc3\xa9", 0), "");
}

TEST(Text, keepsNulBytes)
{
    const std::string text("a\0b", 3);
    EXPECT_EQ(normalized(text), text);
}

TEST(Text, findsPrefixesOfWholeCharacters)
{
    EXPECT_TRUE(canonicallyHasPrefix("Quillbox Office", "Quillbox "));
    EXPECT_TRUE(canonicallyHasPrefix("Quillbox ", "Quillbox "));
    EXPECT_TRUE(canonicallyHasPrefix(kComposed, kDecomposed));
    EXPECT_TRUE(canonicallyHasPrefix("anything", ""));
    EXPECT_FALSE(canonicallyHasPrefix("Quillbox", "Quillbox "));
    EXPECT_FALSE(canonicallyHasPrefix("Quillbox \xcc\x81", "Quillbox "));
    EXPECT_FALSE(canonicallyHasPrefix(kDecomposed, "e"));
}

TEST(Text, ordersByCodePointsAfterNormalisation)
{
    const CanonicalLess less;
    EXPECT_TRUE(less("B", "a"));
    EXPECT_TRUE(less("Quillbox", "Quillbox A"));
    EXPECT_TRUE(less("10", "9"));
    EXPECT_TRUE(less("f", kDecomposed));
    EXPECT_TRUE(less("\xef\xac\x81", "\xf0\x9f\x93\xb1"));
    EXPECT_FALSE(less(kComposed, kDecomposed));
    EXPECT_FALSE(less(kDecomposed, kComposed));
}

TEST(Text, takesEquivalentNamesForOneKey)
{
    std::set<std::string, CanonicalLess> names{kComposed};
    EXPECT_FALSE(names.insert(kDecomposed).second);
}

TEST(Text, trimsAllUnicodeWhiteSpaceAtBothEndsOnly)
{
    EXPECT_EQ(trimmed("  192.0.2.1 \n"), "192.0.2.1");
    EXPECT_EQ(trimmed("\xc2\xa0\xe2\x80\xa8phone name\xe3\x80\x80\r\n\t\v\f"), "phone name");
    EXPECT_EQ(trimmed("\xc2\x85x\xe2\x80\x83"), "x");
    EXPECT_EQ(trimmed(" \n "), "");
    EXPECT_EQ(trimmed(""), "");
    EXPECT_EQ(trimmed("\xc3\xa9"), "\xc3\xa9");
}

TEST(Text, isTrimmedOfTheFirstAndTheLastBlankOfEachWidth)
{
    EXPECT_EQ(trimmed("\xE2\x80\x80x\xE2\x80\x8B"), "x");                         // U+2000, U+200B
    EXPECT_EQ(trimmed("\xE2\x80\x8Cx\xE1\xBF\xBF"), "\xE2\x80\x8Cx\xE1\xBF\xBF"); // beyond
}

TEST(Text, hasTheEmptyPrefix)
{
    EXPECT_TRUE(canonicallyHasPrefix("\xCC\x81x", "")); // a combining accent
    EXPECT_TRUE(canonicallyHasPrefix("", ""));
}

TEST(Text, isTakenPartByPart)
{
    std::string_view text = "a\n\nb;c\n";
    EXPECT_EQ(takeLine(text), "a");
    EXPECT_EQ(takeLine(text), "");
    EXPECT_EQ(takePart(text, ';'), "b");
    EXPECT_EQ(takeLine(text), "c");
    EXPECT_EQ(text, "");
    EXPECT_EQ(takeLine(text), "");
}

TEST(Text, putsNamesBetweenQuotationMarksVerbatim)
{
    EXPECT_EQ(inDoubleQuotes("Quillbox \"Office\" \\"), "\"Quillbox \"Office\" \\\"");
    EXPECT_EQ(inDoubleQuotes(""), "\"\"");
}

TEST(ParsePort, readsDecimalNumbersOfSixteenBits)
{
    EXPECT_EQ(parsePort("445"), 445);
    EXPECT_EQ(parsePort("0"), 0);
    EXPECT_EQ(parsePort("65535"), 65535);
    EXPECT_EQ(parsePort("0000000000000000445"), 445);
}

TEST(ParsePort, takesOneLeadingSign)
{
    EXPECT_EQ(parsePort("+445"), 445);
    EXPECT_EQ(parsePort("+0"), 0);
    EXPECT_EQ(parsePort("++445"), std::nullopt);
    EXPECT_EQ(parsePort("+-0"), std::nullopt);
}

TEST(ParsePort, behindAMinusSignOnlyZeroFits)
{
    EXPECT_EQ(parsePort("-0"), 0);
    EXPECT_EQ(parsePort("-000"), 0);
    EXPECT_EQ(parsePort("-1"), std::nullopt);
    EXPECT_EQ(parsePort("-445"), std::nullopt);
}

TEST(ParsePort, refusesWhatDoesNotFit)
{
    EXPECT_EQ(parsePort("65536"), std::nullopt);
    EXPECT_EQ(parsePort("70000"), std::nullopt);
    EXPECT_EQ(parsePort("4294967741"), std::nullopt);           // 445 modulo 2^32
    EXPECT_EQ(parsePort("18446744073709552061"), std::nullopt); // 445 modulo 2^64
}

TEST(ParsePort, refusesEverythingElse)
{
    for (const char* text : {"", "+", "-", " 445", "445 ", "445\n", "4 45", "0x1bd", "44.5", "smb",
                             "\u0664\u0664\u0665", "445\u00a0"})
        EXPECT_EQ(parsePort(text), std::nullopt) << text;
    EXPECT_EQ(parsePort(std::string_view("445\0", 4)), std::nullopt);
}

TEST(PercentEncoded, leavesWhatIsUnreservedOrNamed)
{
    EXPECT_EQ(percentEncoded("aZ09-._~"), "aZ09-._~");
    EXPECT_EQ(percentEncoded("a b/%\xc3\xbc\x0f"), "a%20b%2F%25%C3%BC%0F");
    EXPECT_EQ(percentEncoded("a b/", "/"), "a%20b/");
}

} // namespace
} // namespace quillbox
