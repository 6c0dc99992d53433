#include "ui/display_text.h"

#include "app/shown_text.h"

#include <QChar>
#include <QTextDocument>

namespace quillbox::DisplayText {

namespace {

constexpr char16_t kWordJoiner = 0x2060;

QString withoutMnemonic(QString text)
{
    return text.replace(u'&', QStringLiteral("&&"));
}

} // namespace

QString forLabel(std::string_view text)
{
    return shownText(text);
}

QString forButton(std::string_view text)
{
    return withoutMnemonic(shownText(text));
}

QString forMenu(std::string_view text)
{
    return withoutMnemonic(shownText(text));
}

QString forToolTip(std::string_view text)
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

} // namespace quillbox::DisplayText
