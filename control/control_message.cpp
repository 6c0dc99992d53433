#include "control/control_message.h"

#include "control/strict_object.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <array>
#include <utility>

namespace quillbox {

namespace {

constexpr int kVersion = 1;

constexpr const char* kVersionKey = "version";
constexpr const char* kCommand = "command";
constexpr const char* kPhone = "phone";
constexpr const char* kOutcome = "outcome";
constexpr const char* kText = "text";
constexpr const char* kPhones = "phones";
constexpr const char* kStatus = "status";

template <typename Value> using Names = std::array<std::pair<Value, const char*>, 5>;

constexpr Names<ControlCommand> kCommands{{{ControlCommand::Status, "status"},
                                           {ControlCommand::Open, "open"},
                                           {ControlCommand::Manage, "manage"},
                                           {ControlCommand::Restart, "restart"},
                                           {ControlCommand::Quit, "quit"}}};

constexpr std::array<std::pair<ControlOutcome, const char*>, 4> kOutcomes{
    {{ControlOutcome::Done, "done"},
     {ControlOutcome::Refused, "refused"},
     {ControlOutcome::UnknownPhone, "unknown phone"},
     {ControlOutcome::NotUnderstood, "not understood"}}};

template <typename Table, typename Value> const char* nameIn(const Table& table, Value value)
{
    for (const auto& [each, name] : table) {
        if (each == value)
            return name;
    }
    return "";
}

template <typename Value, typename Table>
std::optional<Value> valueNamed(const Table& table, std::string_view wanted)
{
    for (const auto& [value, name] : table) {
        if (wanted == name)
            return value;
    }
    return std::nullopt;
}

std::string oneLine(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

/// nullopt unless the text is a JSON object of this protocol version.
std::optional<QJsonObject> objectIn(const std::string& text)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromStdString(text), &error);
    const QJsonObject object = document.object();
    if (error.error != QJsonParseError::NoError || !document.isObject()
        || object.value(QLatin1StringView(kVersionKey)) != QJsonValue(kVersion))
        return std::nullopt;
    return object;
}

ControlAnswer notUnderstood(std::string text)
{
    return {.outcome = ControlOutcome::NotUnderstood, .text = std::move(text)};
}

} // namespace

const char* nameOf(ControlCommand command)
{
    return nameIn(kCommands, command);
}

std::optional<ControlCommand> controlCommandNamed(std::string_view name)
{
    return valueNamed<ControlCommand>(kCommands, name);
}

bool takesPhone(ControlCommand command)
{
    return command == ControlCommand::Open || command == ControlCommand::Manage;
}

std::string encoded(const ControlRequest& request)
{
    QJsonObject object{{QLatin1StringView(kVersionKey), kVersion},
                       {QLatin1StringView(kCommand), QLatin1StringView(nameOf(request.command))}};
    if (request.phone)
        object.insert(QLatin1StringView(kPhone), jsonString(*request.phone));
    return oneLine(object);
}

std::string encoded(const ControlAnswer& answer)
{
    QJsonArray phones;
    for (const std::string& name : answer.phones)
        phones.append(jsonString(name));
    QJsonObject object{
        {QLatin1StringView(kVersionKey), kVersion},
        {QLatin1StringView(kOutcome), QLatin1StringView(nameIn(kOutcomes, answer.outcome))},
        {QLatin1StringView(kText), jsonString(answer.text)},
        {QLatin1StringView(kPhones), phones}};
    if (answer.status)
        object.insert(QLatin1StringView(kStatus), jsonOf(*answer.status));
    return oneLine(object);
}

std::variant<ControlRequest, ControlAnswer> decodedRequest(const std::string& text)
{
    const auto object = objectIn(text);
    if (!object)
        return notUnderstood("The running instance accepts only requests of version "
                             + std::to_string(kVersion));
    StrictObject strict(*object);
    strict.number(kVersionKey);
    const auto command = controlCommandNamed(strict.text(kCommand));
    if (!command)
        return notUnderstood("The running instance does not know that command");
    ControlRequest request{.command = *command};
    if (strict.has(kPhone))
        request.phone = strict.text(kPhone);
    if (!strict.isSound() || (request.phone && !takesPhone(*command)))
        return notUnderstood("The running instance does not understand the request");
    return request;
}

std::optional<ControlAnswer> decodedAnswer(const std::string& text)
{
    const auto object = objectIn(text);
    if (!object)
        return std::nullopt;
    StrictObject strict(*object);
    strict.number(kVersionKey);
    const auto outcome = valueNamed<ControlOutcome>(kOutcomes, strict.text(kOutcome));
    if (!outcome)
        return std::nullopt;
    ControlAnswer answer{.outcome = *outcome, .text = strict.text(kText)};
    for (const auto& name : strict.list(kPhones)) {
        if (!name.isString())
            strict.refuse();
        answer.phones.push_back(name.toString().toStdString());
    }
    if (strict.has(kStatus)) {
        answer.status = helperStatusIn(strict.nested(kStatus));
        if (!answer.status)
            strict.refuse();
    }
    if (!strict.isSound())
        return std::nullopt;
    return answer;
}

} // namespace quillbox
