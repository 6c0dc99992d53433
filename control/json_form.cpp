#include "control/json_form.h"

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

void JsonForm::version(std::uint64_t known)
{
    std::uint64_t found = known;
    member("version", found);
    isRefused = isRefused || found != known;
}

/// Bytes that are not UTF-8 become U+FFFD.
void JsonForm::convert(QJsonValue& json, std::string& value)
{
    isRefused = isRefused || (isReading && !json.isString());
    if (isReading)
        value = json.toString().toStdString();
    else
        json = QString::fromStdString(value);
}

void JsonForm::convert(QJsonValue& json, bool& value)
{
    isRefused = isRefused || (isReading && !json.isBool());
    if (isReading)
        value = json.toBool();
    else
        json = value;
}

void JsonForm::convert(QJsonValue& json, std::uint64_t& value)
{
    if (!isReading) {
        json = static_cast<qint64>(value);
        return;
    }
    const qint64 number = json.toInteger(-1);
    isRefused = isRefused || number < 0;
    value = static_cast<std::uint64_t>(number);
}

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
