#pragma once

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <cstdint>
#include <string>
#include <utility>

namespace quillbox {

/// Reads a JSON object whose members are all known: a missing, additional or wrongly typed member
/// makes it unsound. The values that were read are valid only if isSound().
class StrictObject final {
public:
    explicit StrictObject(QJsonObject read) : object(std::move(read)) {}

    bool has(const char* key) const { return object.contains(QLatin1StringView(key)); }
    std::string text(const char* key);
    bool truth(const char* key);

    /// A non-negative integer.
    std::uint64_t number(const char* key);

    QJsonArray list(const char* key);
    QJsonObject nested(const char* key);

    /// Makes the object unsound, for a caller that finds a value invalid.
    void refuse() { isRefused = true; }

    /// Whether every member that was read is present and valid, and there are no others.
    bool isSound() const { return !isRefused && count == object.size(); }

private:
    QJsonValue take(const char* key, QJsonValue::Type type);

    const QJsonObject object;
    qsizetype count = 0;
    bool isRefused = false;
};

/// A JSON string; bytes that are not UTF-8 become U+FFFD.
inline QString jsonString(const std::string& text)
{
    return QString::fromStdString(text);
}

/// A JSON text for scripts and terminals: indented UTF-8 that ends with a newline; characters that
/// a terminal would interpret are escaped.
std::string jsonText(const QJsonDocument& document);

} // namespace quillbox
