#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <cstdint>
#include <string>
#include <utility>

namespace quillbox {

/// Reads a JSON object of which every member is known: what is missing, of another kind or too much
/// makes it unsound. The values are only of use once it has been found sound.
class StrictObject final {
public:
    explicit StrictObject(QJsonObject read) : object(std::move(read)) {}

    bool has(const char* key) const { return object.contains(QLatin1StringView(key)); }
    std::string text(const char* key);
    bool truth(const char* key);

    /// A whole number from 0 on.
    std::uint64_t number(const char* key);

    QJsonArray list(const char* key);
    QJsonObject nested(const char* key);

    /// Something that was read is not as it should be.
    void refuse() { isRefused = true; }

    /// Whether all that was asked for was there, and nothing else is.
    bool isSound() const { return !isRefused && count == object.size(); }

private:
    QJsonValue take(const char* key, QJsonValue::Type type);

    const QJsonObject object;
    qsizetype count = 0;
    bool isRefused = false;
};

/// Text as JSON holds it, which has no bytes that are not UTF-8: such become U+FFFD.
inline QString jsonString(const std::string& text)
{
    return QString::fromStdString(text);
}

} // namespace quillbox
