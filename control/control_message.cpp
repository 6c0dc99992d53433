#include "control/control_message.h"

#include "control/json_form.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <array>
#include <utility>

namespace quillbox {

namespace {

constexpr int kVersion = 1;

// In the order of the enumerators.
constexpr std::array<std::string_view, 5> kCommands{"status", "open", "manage", "restart", "quit"};
constexpr std::array<std::string_view, 4> kOutcomes{"done", "refused", "unknown phone",
                                                    "not understood"};

template <typename Message> std::string oneLine(const Message& message)
{
    return QJsonDocument(JsonForm::of(message)).toJson(QJsonDocument::Compact).toStdString();
}

/// nullopt unless the text is a JSON object of this protocol version.
std::optional<QJsonObject> objectIn(const std::string& text)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromStdString(text), &error);
    const QJsonObject object = document.object();
    if (error.error != QJsonParseError::NoError || !document.isObject()
        || object.value(QLatin1StringView("version")) != QJsonValue(kVersion))
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
    return kCommands.at(static_cast<std::size_t>(command)).data();
}

std::optional<ControlCommand> controlCommandNamed(std::string_view name)
{
    return valueNamed<ControlCommand>(name, kCommands);
}

bool takesPhone(ControlCommand command)
{
    return command == ControlCommand::Open || command == ControlCommand::Manage;
}

void ControlRequest::describe(JsonForm& form)
{
    form.version(kVersion);
    form.choice("command", command, kCommands);
    form.member("phone", phone);
}

void ControlAnswer::describe(JsonForm& form)
{
    form.version(kVersion);
    form.choice("outcome", outcome, kOutcomes);
    form.member("text", text);
    form.member("phones", phones);
    form.member("status", status);
}

std::string encoded(const ControlRequest& request)
{
    return oneLine(request);
}

std::string encoded(const ControlAnswer& answer)
{
    return oneLine(answer);
}

std::variant<ControlRequest, ControlAnswer> decodedRequest(const std::string& text)
{
    const auto object = objectIn(text);
    if (!object)
        return notUnderstood("The running instance accepts only requests of version "
                             + std::to_string(kVersion));
    if (!controlCommandNamed(object->value(QLatin1StringView("command")).toString().toStdString()))
        return notUnderstood("The running instance does not know that command");
    const auto request = JsonForm::read<ControlRequest>(*object);
    if (!request || (request->phone && !takesPhone(request->command)))
        return notUnderstood("The running instance does not understand the request");
    return *request;
}

std::optional<ControlAnswer> decodedAnswer(const std::string& text)
{
    const auto object = objectIn(text);
    return object ? JsonForm::read<ControlAnswer>(*object) : std::nullopt;
}

} // namespace quillbox
