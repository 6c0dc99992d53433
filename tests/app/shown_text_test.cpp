#include "app/shown_text.h"

#include <string>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

constexpr char32_t kReplacement = 0xfffd;

/// The characters that are shown in place of these.
std::u32string shown(const std::u32string& characters)
{
    return shownText(QString::fromStdU32String(characters).toStdString()).toStdU32String();
}

/// The flag of a region whose name has that many letters.
std::u32string flag(std::size_t letters)
{
    return U'\U0001F3F4' + std::u32string(letters, U'\U000E0067') + U'\U000E007F';
}

TEST(ShownText, keepsTheTagsOfFlagsOfThreeToSixLetters)
{
    for (const std::size_t letters : {3U, 4U, 5U, 6U})
        EXPECT_EQ(shown(flag(letters)), flag(letters)) << letters;
    for (const std::size_t letters : {0U, 1U, 2U, 7U})
        EXPECT_EQ(shown(flag(letters)), U'\U0001F3F4' + std::u32string(letters + 1, kReplacement))
            << letters;
}

TEST(ShownText, keepsAJoinerThatGivesALetterItsInitialOrFinalForm)
{
    EXPECT_EQ(shown(U"\u0628\u200D"), U"\u0628\u200D");
    EXPECT_EQ(shown(U"\u200D\u0628"), U"\u200D\u0628");
    EXPECT_EQ(shown(U"\u0628\u200D\u0628"), U"\u0628\uFFFD\u0628") << "they join anyway";
}

TEST(ShownText, keepsAJoinerBetweenTwoPicturesEvenBehindAVariation)
{
    EXPECT_EQ(shown(U"\u2764\uFE0F\u200D\U0001F525"), U"\u2764\uFE0F\u200D\U0001F525");
}

TEST(ShownText, keepsAVariationOfAMongolianLetterOnly)
{
    EXPECT_EQ(shown(U"\u1820\u180B"), U"\u1820\u180B");
    EXPECT_EQ(shown(U"a\u180B"), U"a\uFFFD");
    EXPECT_EQ(shown(U"\u1820\u180E"), U"\u1820\uFFFD") << "a blank without width";
    EXPECT_EQ(shown(U"\u1820\u180E\u180B"), U"\u1820\uFFFD\uFFFD");
}

TEST(ShownText, keepsABlankWithoutWidthBetweenWordsOfScriptsWithoutBlanks)
{
    EXPECT_EQ(shown(U"\u0E01\u200B\u0E01"), U"\u0E01\u200B\u0E01");
    EXPECT_EQ(shown(U"\u0E01\u200Ba"), U"\u0E01\uFFFDa");
    EXPECT_EQ(shown(U"a\u200B\u0E01"), U"a\uFFFD\u0E01");
    EXPECT_EQ(shown(U"\u17D2\u200B\u17B4"), U"\u17D2\uFFFD\uFFFD") << "an invisible vowel of Khmer";
}

TEST(ShownText, showsNoNoncharacters)
{
    EXPECT_EQ(shown(U"a\uFDD0b"), U"a\uFFFDb");
}

} // namespace

} // namespace quillbox
