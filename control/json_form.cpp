#include "control/strict_object.h"

#include <QChar>

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

std::string StrictObject::text(const char* key)
{
    return take(key, QJsonValue::String).toString().toStdString();
}

bool StrictObject::truth(const char* key)
{
    return take(key, QJsonValue::Bool).toBool();
}

std::uint64_t StrictObject::number(const char* key)
{
    const auto value = take(key, QJsonValue::Double).toInteger(-1);
    if (value < 0)
        refuse();
    return value < 0 ? 0 : static_cast<std::uint64_t>(value);
}

QJsonArray StrictObject::list(const char* key)
{
    return take(key, QJsonValue::Array).toArray();
}

QJsonObject StrictObject::nested(const char* key)
{
    return take(key, QJsonValue::Object).toObject();
}

QJsonValue StrictObject::take(const char* key, QJsonValue::Type type)
{
    auto value = object.value(QLatin1StringView(key));
    if (value.type() != type)
        refuse();
    ++count;
    return value;
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
