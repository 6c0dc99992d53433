#include "ui/shown_text.h"

#include <QChar>
#include <QStringDecoder>
#include <QTextDocument>
#include <cstddef>
#include <string>

namespace quillbox {

namespace {

constexpr char32_t kReplacement = 0xfffd;
constexpr char32_t kZeroWidthSpace = 0x200b;
constexpr char32_t kNonJoiner = 0x200c;
constexpr char32_t kJoiner = 0x200d;
constexpr char16_t kWordJoiner = 0x2060;
constexpr char32_t kKeycap = 0x20e3;
constexpr char32_t kBlackFlag = 0x1f3f4;
constexpr char32_t kCancelTag = 0xe007f;
constexpr unsigned char kViramaClass = 9;

bool isBetween(char32_t character, char32_t first, char32_t last)
{
    return character >= first && character <= last;
}

/// The Unicode property Default_Ignorable_Code_Point: invisible where it is not supported.
bool isInvisible(char32_t character)
{
    return character == 0xad || character == 0x34f || character == 0x61c
           || isBetween(character, 0x115f, 0x1160) || isBetween(character, 0x17b4, 0x17b5)
           || isBetween(character, 0x180b, 0x180f) || isBetween(character, 0x200b, 0x200f)
           || isBetween(character, 0x202a, 0x202e) || isBetween(character, 0x2060, 0x206f)
           || character == 0x3164 || isBetween(character, 0xfe00, 0xfe0f) || character == 0xfeff
           || character == 0xffa0 || isBetween(character, 0xfff0, 0xfffb)
           || isBetween(character, 0x1bca0, 0x1bca3) || isBetween(character, 0x1d173, 0x1d17a)
           || isBetween(character, 0xe0000, 0xe0fff);
}

bool isNeverShown(char32_t character)
{
    switch (QChar::category(character)) {
    case QChar::Other_Control:
    case QChar::Other_Surrogate:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return true;
    default:
        return QChar::isNonCharacter(character);
    }
}

/// Whether it may be part of an emoji sequence (Unicode Technical Standard 51). Symbols that are
/// too new for Qt's Unicode tables are recognised by their block.
bool isPictograph(char32_t character)
{
    if (isBetween(character, 0x1f000, 0x1faff))
        return true;
    const QChar::Category category = QChar::category(character);
    return character == 0x203c || character == 0x2049 || character == 0x3030 || character == 0x303d
           || (character > 0x7f
               && (category == QChar::Symbol_Other || category == QChar::Symbol_Math));
}

/// Decides for each character of a text, from its context, whether it may be shown.
class Reader {
public:
    explicit Reader(std::u32string_view characters) : text(characters) {}

    /// Whether the character at `place` may be shown.
    bool isShown(std::size_t place) const
    {
        const char32_t character = text[place];
        if (isNeverShown(character))
            return false;
        if (!isInvisible(character))
            return true;
        if (character == kJoiner || character == kNonJoiner)
            return isJoinerOfUse(place);
        if (character == kZeroWidthSpace)
            return hasNoSpaces(before(place)) && hasNoSpaces(at(place + 1));
        if (isBetween(character, 0xe0020, kCancelTag))
            return isInFlag(place);
        return isVariationOfUse(place);
    }

private:
    /// Beyond the ends NUL, which is never a reason to keep an invisible character.
    char32_t at(std::size_t place) const { return place < text.size() ? text[place] : U'\0'; }
    char32_t before(std::size_t place) const { return place > 0 ? text[place - 1] : U'\0'; }

    bool isJoinerOfUse(std::size_t place) const
    {
        const char32_t previous = before(place);
        const char32_t next = at(place + 1);
        // RFC 5892, appendices A.1 and A.2; in Bengali a joiner may precede the virama as well.
        if (QChar::combiningClass(previous) == kViramaClass
            || (text[place] == kJoiner && QChar::combiningClass(next) == kViramaClass))
            return true;
        if (text[place] == kNonJoiner)
            return joinsForward(place) && joinsBackward(place);
        if (isPictograph(next) && (isPictograph(previous) || isEmojiVariation(place - 1)))
            return true;
        // After or before a single joining letter, a joiner selects its initial or final form.
        return joinsForward(place) != joinsBackward(place);
    }

    /// Whether the script of a character separates words with zero-width spaces.
    static bool hasNoSpaces(char32_t character)
    {
        switch (QChar::script(character)) {
        case QChar::Script_Khmer:
        case QChar::Script_Lao:
        case QChar::Script_Myanmar:
        case QChar::Script_Thai:
            return !isInvisible(character);
        default:
            return false;
        }
    }

    /// Whether the preceding letter joins to the next one; transparent marks in between are
    /// skipped.
    bool joinsForward(std::size_t place) const
    {
        QChar::JoiningType type = QChar::Joining_Transparent;
        while (place > 0 && type == QChar::Joining_Transparent)
            type = joiningType(text[--place]);
        return type == QChar::Joining_Dual || type == QChar::Joining_Left;
    }

    bool joinsBackward(std::size_t place) const
    {
        QChar::JoiningType type = QChar::Joining_Transparent;
        while (++place < text.size() && type == QChar::Joining_Transparent)
            type = joiningType(text[place]);
        return type == QChar::Joining_Dual || type == QChar::Joining_Right;
    }

    /// Invisible characters are transparent in Unicode, but must not justify keeping another one.
    static QChar::JoiningType joiningType(char32_t character)
    {
        return isInvisible(character) ? QChar::Joining_None : QChar::joiningType(character);
    }

    bool isEmojiVariation(std::size_t place) const
    {
        return at(place) == 0xfe0f && isPictograph(before(place));
    }

    bool isVariationOfUse(std::size_t place) const
    {
        const char32_t character = text[place];
        const char32_t previous = before(place);
        if (isBetween(character, 0xfe0e, 0xfe0f)) {
            const bool isKeycapBase =
                isBetween(previous, U'0', U'9') || previous == U'#' || previous == U'*';
            return isPictograph(previous) || (isKeycapBase && at(place + 1) == kKeycap);
        }
        if (isBetween(character, 0xfe00, 0xfe0d) || isBetween(character, 0xe0100, 0xe01ef))
            return QChar::script(previous) == QChar::Script_Han;
        return isBetween(character, 0x180b, 0x180f) && character != 0x180e
               && QChar::script(previous) == QChar::Script_Mongolian && !isInvisible(previous);
    }

    /// Flags of regions: a black flag, three to six tags and the end tag.
    bool isInFlag(std::size_t place) const
    {
        std::size_t first = place;
        while (first > 0 && isRegionTag(before(first)))
            --first;
        std::size_t end = first;
        while (isRegionTag(at(end)))
            ++end;
        const std::size_t count = end - first;
        return before(first) == kBlackFlag && at(end) == kCancelTag && count >= 3 && count <= 6;
    }

    static bool isRegionTag(char32_t character)
    {
        return isBetween(character, 0xe0030, 0xe0039) || isBetween(character, 0xe0061, 0xe007a);
    }

    std::u32string_view text;
};

std::u32string decoded(std::string_view text)
{
    // Keeps a byte order mark, which counts as an invisible character here.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless
                                                     | QStringDecoder::Flag::ConvertInitialBom);
    const QString result =
        decoder(QByteArrayView(text.data(), static_cast<qsizetype>(text.size())));
    return result.toStdU32String();
}

} // namespace

QString shownText(std::string_view text)
{
    const std::u32string characters = decoded(text);
    const Reader reader(characters);
    std::u32string result;
    for (std::size_t place = 0; place < characters.size(); ++place)
        result += reader.isShown(place) ? characters[place] : kReplacement;
    return QString::fromStdU32String(result);
}

std::string shownUtf8(std::string_view text)
{
    return shownText(text).toStdString();
}

QString shownInMenu(std::string_view text)
{
    return shownText(text).replace(u'&', QStringLiteral("&&"));
}

QString shownInToolTip(std::string_view text)
{
    QString result = shownText(text);
    // A zero-width character breaks whatever Qt would take for a tag or an entity. Escaping does
    // not work: a desktop that draws the tool tip of the status item shows it as plain text.
    for (qsizetype place = 0; place < result.size() && Qt::mightBeRichText(result); ++place) {
        const QStringView rest = QStringView(result).mid(place);
        if (rest.startsWith(u'<') || rest.startsWith(u"&lt;"))
            result.insert(++place, QChar(kWordJoiner));
    }
    return result;
}

} // namespace quillbox
