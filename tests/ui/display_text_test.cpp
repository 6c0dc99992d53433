#include "ui/display_text.h"

#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QTextDocument>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace quillbox {

namespace {

using namespace std::string_view_literals;

std::string label(std::string_view text)
{
    return DisplayText::forLabel(text).toStdString();
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

TEST(DisplayText, showsOrdinaryNamesVerbatim)
{
    for (const char* name : kOrdinaryNames)
        EXPECT_EQ(label(name), name);
}

TEST(DisplayText, keepsTheLongestName)
{
    EXPECT_EQ(label(std::string(63, 'x')), std::string(63, 'x'));
}

TEST(DisplayText, staysOnOneLine)
{
    EXPECT_EQ(label("a\nb\rc\td"), "a\uFFFDb\uFFFDc\uFFFDd");
    EXPECT_EQ(label("a\u2028b\u2029c\u0085d\vf\fg"), "a\uFFFDb\uFFFDc\uFFFDd\uFFFDf\uFFFDg");
}

TEST(DisplayText, showsThatThereAreControlCharacters)
{
    EXPECT_EQ(label("a\0b\x1b[31m\x7f"sv), "a\uFFFDb\uFFFD[31m\uFFFD");
}

TEST(DisplayText, doesNotTurnTheDirectionOfWriting)
{
    // As numbers: as literals they would reorder the source text.
    for (const int control : {0x202a, 0x202b, 0x202c, 0x202d, 0x202e, 0x2066, 0x2067, 0x2068,
                              0x2069, 0x200e, 0x200f, 0x061c})
        EXPECT_EQ(label("Office" + QString(QChar(control)).toStdString() + "1"), "Office\uFFFD1");
}

TEST(DisplayText, showsThatThereIsWhatShowsNothing)
{
    for (const char* invisible :
         {"\u00AD",     "\u034F",     "\u115F",     "\u17B4",    "\u180E", "\u200B",
          "\u200C",     "\u200D",     "\u2060",     "\u2063",    "\u206A", "\u3164",
          "\uFE00",     "\uFE0F",     "\uFEFF",     "\uFFA0",    "\uFFF9", "\U0001D173",
          "\U000E0001", "\U000E0041", "\U000E0100", "\U000E007F"}) {
        EXPECT_EQ(label("Quill" + std::string(invisible) + "box"), "Quill\uFFFDbox");
        EXPECT_EQ(label(invisible), "\uFFFD");
        EXPECT_EQ(label("Quillbox" + std::string(invisible)), "Quillbox\uFFFD");
    }
}

TEST(DisplayText, keepsNoSecondInvisibleCharacterForTheSakeOfAFirst)
{
    EXPECT_EQ(label("❤\uFE0F\uFE0F"), "❤\uFE0F\uFFFD");
    EXPECT_EQ(label("👩\u200D\u200D💻"), "👩\uFFFD\uFFFD💻");
    EXPECT_EQ(label("葛\U000E0100\U000E0101"), "葛\U000E0100\uFFFD");
    EXPECT_EQ(label("می\u200C\u200Cخ"), "می\uFFFD\uFFFDخ");
    EXPECT_EQ(label("ភ\u200B\u200Bខ"), "ភ\uFFFD\uFFFDខ");
}

TEST(DisplayText, takesNoOtherTagsForAFlag)
{
    const std::string tags = "\U000E0067\U000E0062\U000E0065\U000E006E\U000E0067";
    const std::string replaced = "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD";
    EXPECT_EQ(label("🏴" + tags), "🏴" + replaced);
    EXPECT_EQ(label("x" + tags + "\U000E007F"), "x" + replaced + "\uFFFD");
    EXPECT_EQ(label("🏴" + tags + tags + "\U000E007F"), "🏴" + replaced + replaced + "\uFFFD");
}

TEST(DisplayText, showsBytesThatAreNotUtf8)
{
    EXPECT_EQ(label("a\xff"
                    "b"),
              "a\uFFFDb");
    EXPECT_EQ(label("a\xc3"), "a\uFFFD");
    EXPECT_EQ(label("\xed\xa0\x80"
                    "x")
                  .substr(0, 3),
              "\uFFFD");
    EXPECT_EQ(label("\xef\xb7\x90"), "\uFFFD") << "a noncharacter";
    EXPECT_EQ(label(""), "");
}

TEST(DisplayText, hasNoMnemonicInAButton)
{
    QPushButton button(DisplayText::forButton("Tom & Jerry"));
    EXPECT_EQ(button.text(), QStringLiteral("Tom && Jerry"));
    EXPECT_TRUE(button.shortcut().isEmpty());
    EXPECT_EQ(DisplayText::forButton("&&_"), QStringLiteral("&&&&_"));
}

TEST(DisplayText, hasNoMnemonicInAMenu)
{
    EXPECT_EQ(DisplayText::forMenu("Tom & Jerry_x"), QStringLiteral("Tom && Jerry_x"));
    EXPECT_EQ(DisplayText::forMenu("Office\tCtrl+Q"), QStringLiteral("Office\uFFFDCtrl+Q"));
}

TEST(DisplayText, leavesAnOrdinaryToolTipAsItIs)
{
    for (const char* name : kOrdinaryNames)
        EXPECT_EQ(DisplayText::forToolTip(name).toStdString(), name);
    EXPECT_EQ(DisplayText::forToolTip("1 < 2 & 3 > 2"), QStringLiteral("1 < 2 & 3 > 2"));
}

TEST(DisplayText, isNeverRichTextInAToolTip)
{
    for (const char* name : {"<img src=http://192.0.2.1/x>", "x <b>y</b>", "&lt;", "x &lt;b&gt; y",
                             "<?xml", "<qt>", "<!DOCTYPE html>", "<!-- -->", "&&lt;<b>", "<<b>",
                             "< b>", "<b/>", "a < c <b>", "  <i>", "<b><i><u>"}) {
        const QString toolTip = DisplayText::forToolTip(name);
        EXPECT_FALSE(Qt::mightBeRichText(toolTip)) << name;
        QString visible = toolTip;
        visible.remove(QChar(0x2060));
        EXPECT_EQ(visible.toStdString(), name) << "the name is shown unchanged";
    }
}

} // namespace

} // namespace quillbox
