#include "ui/shown_text.h"

#include <QString>
#include <QTextDocument>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::string_view_literals;

std::string shownName(std::string_view text)
{
    return shownText(text).toStdString();
}

constexpr const char* kOrdinaryNames[] = {
    "Quillbox Office",
    "Quillbox a.b.c",
    R"(Quillbox back\slash)",
    "Quillbox 50% off_now & more",
    "../../etc %n %s",
    "Küche",
    "Ku\u0308che",
    "事務所の電話",
    "葛\U000E0100城",
    "Телефон",
    "הטלפון שלי",
    "هاتف المكتب",
    "می\u200Cخواهم",
    "ه\u200D",
    "ශ\u0DCA\u200Dරී",
    "क\u094D\u200Cष",
    "র\u200D\u09CDযাব",
    "ភាសា\u200Bខ្មែរ",
    "ไทย",
    "📱 Phone",
    "👩\u200D💻",
    "👩🏽\u200D💻",
    "👨\u200D👩\u200D👧\u200D👦",
    "❤\uFE0F",
    "❤\uFE0F\u200D🔥",
    "🏳\uFE0F\u200D🌈",
    "🧑\u200D⚕\uFE0F",
    "1\uFE0F\u20E3",
    "🏴\U000E0067\U000E0062\U000E0065\U000E006E\U000E0067\U000E007F",
    "a\u00A0b\u3000c",
};

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

TEST(ShownText, showsOrdinaryNamesVerbatim)
{
    for (const char* name : kOrdinaryNames)
        EXPECT_EQ(shownName(name), name);
}

TEST(ShownText, keepsTheLongestName)
{
    EXPECT_EQ(shownName(std::string(63, 'x')), std::string(63, 'x'));
}

TEST(ShownText, staysOnOneLine)
{
    EXPECT_EQ(shownName("a\nb\rc\td"), "a\uFFFDb\uFFFDc\uFFFDd");
    EXPECT_EQ(shownName("a\u2028b\u2029c\u0085d\vf\fg"), "a\uFFFDb\uFFFDc\uFFFDd\uFFFDf\uFFFDg");
}

TEST(ShownText, showsThatThereAreControlCharacters)
{
    EXPECT_EQ(shownName("a\0b\x1b[31m\x7f"sv), "a\uFFFDb\uFFFD[31m\uFFFD");
}

TEST(ShownText, doesNotTurnTheDirectionOfWriting)
{
    // As numbers: as literals they would reorder the source text.
    for (const int control : {0x202a, 0x202b, 0x202c, 0x202d, 0x202e, 0x2066, 0x2067, 0x2068,
                              0x2069, 0x200e, 0x200f, 0x061c})
        EXPECT_EQ(shownName("Office" + QString(QChar(control)).toStdString() + "1"),
                  "Office\uFFFD1");
}

TEST(ShownText, showsThatThereIsWhatShowsNothing)
{
    for (const char* invisible :
         {"\u00AD",     "\u034F",     "\u115F",     "\u17B4",    "\u180E", "\u200B",
          "\u200C",     "\u200D",     "\u2060",     "\u2063",    "\u206A", "\u3164",
          "\uFE00",     "\uFE0F",     "\uFEFF",     "\uFFA0",    "\uFFF9", "\U0001D173",
          "\U000E0001", "\U000E0041", "\U000E0100", "\U000E007F"}) {
        EXPECT_EQ(shownName("Quill" + std::string(invisible) + "box"), "Quill\uFFFDbox");
        EXPECT_EQ(shownName(invisible), "\uFFFD");
        EXPECT_EQ(shownName("Quillbox" + std::string(invisible)), "Quillbox\uFFFD");
    }
}

TEST(ShownText, keepsNoSecondInvisibleCharacterForTheSakeOfAFirst)
{
    EXPECT_EQ(shownName("❤\uFE0F\uFE0F"), "❤\uFE0F\uFFFD");
    EXPECT_EQ(shownName("👩\u200D\u200D💻"), "👩\uFFFD\uFFFD💻");
    EXPECT_EQ(shownName("葛\U000E0100\U000E0101"), "葛\U000E0100\uFFFD");
    EXPECT_EQ(shownName("می\u200C\u200Cخ"), "می\uFFFD\uFFFDخ");
    EXPECT_EQ(shownName("ភ\u200B\u200Bខ"), "ភ\uFFFD\uFFFDខ");
}

TEST(ShownText, takesNoOtherTagsForAFlag)
{
    const std::string tags = "\U000E0067\U000E0062\U000E0065\U000E006E\U000E0067";
    const std::string replaced = "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD";
    EXPECT_EQ(shownName("🏴" + tags), "🏴" + replaced);
    EXPECT_EQ(shownName("x" + tags + "\U000E007F"), "x" + replaced + "\uFFFD");
    EXPECT_EQ(shownName("🏴" + tags + tags + "\U000E007F"),
              "🏴" + replaced + replaced + "\uFFFD");
}

TEST(ShownText, showsBytesThatAreNotUtf8)
{
    EXPECT_EQ(shownName("a\xff"
                        "b"),
              "a\uFFFDb");
    EXPECT_EQ(shownName("a\xc3"), "a\uFFFD");
    EXPECT_EQ(shownName("\xed\xa0\x80"
                        "x")
                  .substr(0, 3),
              "\uFFFD");
    EXPECT_EQ(shownName("\xef\xb7\x90"), "\uFFFD") << "a noncharacter";
    EXPECT_EQ(shownName(""), "");
}

TEST(ShownText, hasNoMnemonicInAMenu)
{
    EXPECT_EQ(shownInMenu("&&_"), QStringLiteral("&&&&_"));
    EXPECT_EQ(shownInMenu("Tom & Jerry_x"), QStringLiteral("Tom && Jerry_x"));
    EXPECT_EQ(shownInMenu("Office\tCtrl+Q"), QStringLiteral("Office\uFFFDCtrl+Q"));
}

TEST(ShownText, leavesAnOrdinaryToolTipAsItIs)
{
    for (const char* name : kOrdinaryNames)
        EXPECT_EQ(shownInToolTip(name).toStdString(), name);
    EXPECT_EQ(shownInToolTip("1 < 2 & 3 > 2"), QStringLiteral("1 < 2 & 3 > 2"));
}

TEST(ShownText, isNeverRichTextInAToolTip)
{
    for (const char* name : {"<img src=http://192.0.2.1/x>", "x <b>y</b>", "&lt;", "x &lt;b&gt; y",
                             "<?xml", "<qt>", "<!DOCTYPE html>", "<!-- -->", "&&lt;<b>", "<<b>",
                             "< b>", "<b/>", "a < c <b>", "  <i>", "<b><i><u>"}) {
        const QString toolTip = shownInToolTip(name);
        EXPECT_FALSE(Qt::mightBeRichText(toolTip)) << name;
        QString visible = toolTip;
        visible.remove(QChar(0x2060));
        EXPECT_EQ(visible.toStdString(), name) << "the name is shown unchanged";
    }
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
