#include "app/strict_object.h"

namespace quillbox {

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

} // namespace quillbox
