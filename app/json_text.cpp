#include "app/json_text.h"

#include <QChar>
#include <QString>

namespace quillbox {

namespace {

/// Whether a terminal displays the character without interpreting it. Newlines are only those
/// between members; those in strings are already escaped.
bool isPlain(char32_t character)
{
    const QChar::Category category = QChar::category(character);
    return character == U'\n'
           || (QChar::isPrint(character) && category != QChar::Separator_Line
               && category != QChar::Separator_Paragraph);
}

} // namespace

std::string jsonText(const QJsonDocument& document)
{
    const QString json = QString::fromUtf8(document.toJson());
    QString text;
    for (const char32_t character : json.toUcs4()) {
        const QString verbatim = QString::fromUcs4(&character, 1);
        if (isPlain(character)) {
            text += verbatim;
            continue;
        }
        for (const QChar unit : verbatim)
            text += QStringLiteral("\\u%1").arg(unit.unicode(), 4, 16, QLatin1Char('0'));
    }
    return text.toStdString();
}

} // namespace quillbox
