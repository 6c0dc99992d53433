#include "control/control_message.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QString>
#include <array>
#include <utility>

namespace quillbox {

namespace {

using namespace Qt::StringLiterals;

constexpr int kVersion = 1;

/// In the order of the enumerators.
constexpr std::array<std::string_view, 4> kOutcomes{"done", "refused", "unknown phone",
                                                    "not understood"};

QJsonObject jsonOf(const ControlRequest& request)
{
    QJsonObject json{{u"version"_s, kVersion},
                     {u"command"_s, QLatin1StringView(nameOf(request.command))}};
    if (request.phone)
        json["phone"_L1] = QString::fromStdString(*request.phone);
    return json;
}

QJsonObject jsonOf(const ControlAnswer& answer)
{
    QJsonArray phones;
    for (const std::string& name : answer.phones)
        phones.append(QString::fromStdString(name));
    const std::string_view outcome = kOutcomes.at(static_cast<std::size_t>(answer.outcome));
    QJsonObject json{{u"version"_s, kVersion},
                     {u"outcome"_s, QLatin1StringView(outcome.data())},
                     {u"text"_s, QString::fromStdString(answer.text)},
                     {u"phones"_s, phones}};
    if (answer.status)
        json["status"_L1] = jsonOf(*answer.status);
    return json;
}

std::string oneLine(const QJsonObject& json)
{
    return QJsonDocument(json).toJson(QJsonDocument::Compact).toStdString();
}

/// nullopt unless the text is a JSON object of this protocol version.
std::optional<QJsonObject> objectIn(const std::string& text)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromStdString(text), &error);
    const QJsonObject object = document.object();
    if (error.error != QJsonParseError::NoError || !document.isObject()
        || object.value("version"_L1) != QJsonValue(kVersion))
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
    return kControlCommandNames.at(static_cast<std::size_t>(command)).data();
}

bool takesPhone(ControlCommand command)
{
    return command == ControlCommand::Open || command == ControlCommand::Manage;
}

std::string encoded(const ControlRequest& request)
{
    return oneLine(jsonOf(request));
}

std::string encoded(const ControlAnswer& answer)
{
    return oneLine(jsonOf(answer));
}

// What has been decoded is exact if it has the form that it was decoded from.

std::variant<ControlRequest, ControlAnswer> decodedRequest(const std::string& text)
{
    const auto json = objectIn(text);
    if (!json)
        return notUnderstood("The running instance accepts only requests of version "
                             + std::to_string(kVersion));
    const auto command = valueNamed<ControlCommand>(
        json->value("command"_L1).toString().toStdString(), kControlCommandNames);
    if (!command)
        return notUnderstood("The running instance does not know that command");
    ControlRequest request{.command = *command};
    if (takesPhone(*command) && json->contains("phone"_L1))
        request.phone = json->value("phone"_L1).toString().toStdString();
    if (jsonOf(request) != *json)
        return notUnderstood("The running instance does not understand the request");
    return request;
}

std::optional<ControlAnswer> decodedAnswer(const std::string& text)
{
    const auto json = objectIn(text);
    if (!json)
        return std::nullopt;
    const std::string outcome = json->value("outcome"_L1).toString().toStdString();
    ControlAnswer answer{
        .outcome = valueNamed<ControlOutcome>(outcome, kOutcomes).value_or(ControlOutcome::Done),
        .text = json->value("text"_L1).toString().toStdString(),
        .status = helperStatusIn(json->value("status"_L1).toObject())};
    for (const QJsonValue& name : json->value("phones"_L1).toArray())
        answer.phones.push_back(name.toString().toStdString());
    QJsonObject exact = jsonOf(answer);
    if (answer.status) // which may lack a hint
        exact["status"_L1] = json->value("status"_L1);
    return exact == *json ? std::optional(answer) : std::nullopt;
}

} // namespace quillbox
