#pragma once

#include "platform/values/text.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quillbox {

/// Reads or writes a value as a JSON object, so that one description, the value's member function
/// `describe`, serves both. Reading is strict: a missing, additional or wrongly typed member makes
/// the object unsound, and the value is valid only if isSound().
class JsonForm final {
public:
    /// Writes.
    JsonForm() = default;

    /// Reads.
    explicit JsonForm(QJsonObject read) : members(std::move(read)), isReading(true) {}

    /// The JSON form of `value`.
    template <typename Value> static QJsonObject of(Value value)
    {
        JsonForm form;
        value.describe(form);
        return form.members;
    }

    /// The value with that form; nullopt if the object is unsound.
    template <typename Value> static std::optional<Value> read(const QJsonObject& object)
    {
        JsonForm form(object);
        Value value;
        value.describe(form);
        return form.isSound() ? std::optional(value) : std::nullopt;
    }

    /// A string, a bool, a non-negative integer, or a list or description of these.
    template <typename Value> void member(const char* key, Value& value)
    {
        QJsonValue json = members.value(QLatin1StringView(key));
        convert(json, value);
        ++count;
        if (!isReading)
            members.insert(QLatin1StringView(key), json);
    }

    /// A member that is there only if there is a value.
    template <typename Value> void member(const char* key, std::optional<Value>& value)
    {
        if (has(key, value))
            member(key, *value);
    }

    /// Whether there is a value. When reading, there is one if the object has the member `key`; it
    /// is created here.
    template <typename Value> bool has(const char* key, std::optional<Value>& value)
    {
        if (isReading)
            value =
                members.contains(QLatin1StringView(key)) ? std::optional(Value()) : std::nullopt;
        return value.has_value();
    }

    /// An enumerator by its name; `names` has those of all, in their order.
    template <typename Value>
    void choice(const char* key, Value& value, std::span<const std::string_view> names)
    {
        std::string name(names[static_cast<std::size_t>(value)]);
        member(key, name);
        const auto found = valueNamed<Value>(name, names);
        isRefused = isRefused || !found;
        value = found.value_or(value);
    }

    /// The version of the form; another one makes the object unsound.
    void version(std::uint64_t known);

private:
    /// Whether every member that was read is present and valid, and there are no others.
    bool isSound() const { return !isRefused && count == members.size(); }

    void convert(QJsonValue& json, std::string& value);
    void convert(QJsonValue& json, bool& value);
    void convert(QJsonValue& json, std::uint64_t& value);

    template <typename Entry> void convert(QJsonValue& json, std::vector<Entry>& list)
    {
        isRefused = isRefused || (isReading && !json.isArray());
        const QJsonArray found = json.toArray();
        if (isReading)
            list.resize(static_cast<std::size_t>(found.size()));
        QJsonArray entries;
        for (Entry& each : list) {
            QJsonValue entry = found.at(entries.size());
            convert(entry, each);
            entries.append(entry);
        }
        json = entries;
    }

    template <typename Value> void convert(QJsonValue& json, Value& value)
    {
        JsonForm nested = isReading ? JsonForm(json.toObject()) : JsonForm();
        value.describe(nested);
        isRefused = isRefused || (isReading && !nested.isSound());
        json = nested.members;
    }

    QJsonObject members;
    bool isReading = false;
    bool isRefused = false;
    qsizetype count = 0;
};

/// A JSON text for scripts and terminals: indented UTF-8 that ends with a newline; characters that
/// a terminal would interpret are escaped.
std::string jsonText(const QJsonDocument& document);

} // namespace quillbox
