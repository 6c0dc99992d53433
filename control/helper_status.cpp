#include "control/helper_status.h"

#include "ui/shown_text.h"

#include <QChar>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <algorithm>
#include <cstdint>

namespace quillbox {

namespace {

using namespace Qt::StringLiterals;

void insert(QJsonObject& json, const Traffic& traffic)
{
    json["sessions"_L1] = static_cast<qint64>(traffic.sessions);
    json["sessionsInAll"_L1] = static_cast<qint64>(traffic.sessionsInAll);
    json["bytesToPhone"_L1] = static_cast<qint64>(traffic.bytesReceived);
    json["bytesFromPhone"_L1] = static_cast<qint64>(traffic.bytesSent);
}

Traffic trafficIn(const QJsonObject& json)
{
    const auto count = [&json](QLatin1StringView key) {
        return static_cast<std::uint64_t>(std::max<qint64>(json[key].toInteger(), 0));
    };
    return {.sessions = count("sessions"_L1),
            .sessionsInAll = count("sessionsInAll"_L1),
            .bytesReceived = count("bytesToPhone"_L1),
            .bytesSent = count("bytesFromPhone"_L1)};
}

std::string textIn(const QJsonValue& json, QLatin1StringView key)
{
    return json[key].toString().toStdString();
}

/// What a status says, whatever else is in the object.
HelperStatus statusIn(const QJsonObject& json)
{
    HelperStatus status{.isReady = json["ready"_L1].toBool(),
                        .text = textIn(json, "status"_L1),
                        .hint = textIn(json, "hint"_L1),
                        .isShownInFinder = json["showInFinder"_L1].toBool(),
                        .isAutomatic = json["automaticDiscovery"_L1].toBool(),
                        .total = trafficIn(json)};
    if (json.contains("dnsSd"_L1))
        status.start = {.reach = json["thisComputerOnly"_L1].toBool() ? Reach::ThisComputer
                                                                      : Reach::Network,
                        .dnsSd = valueNamed<DnsSdChoice>(textIn(json, "dnsSd"_L1), kDnsSdNames)
                                     .value_or(DnsSdChoice::Automatic)};
    for (const QJsonValue& phone : json["phones"_L1].toArray())
        status.phones.push_back({.name = textIn(phone, "name"_L1),
                                 .hasFiles = phone["files"_L1].toBool(),
                                 .hasWebManagement = phone["webManagement"_L1].toBool()});
    for (const QJsonValue& relay : json["relays"_L1].toArray())
        status.relays.push_back({.name = textIn(relay, "name"_L1),
                                 .target = textIn(relay, "target"_L1),
                                 .host = textIn(relay, "host"_L1),
                                 .traffic = trafficIn(relay.toObject())});
    return status;
}

/// Whether a terminal displays the character without interpreting it. Newlines are only those
/// between members; those in strings are already escaped.
bool isPlain(char32_t character)
{
    const QChar::Category category = QChar::category(character);
    return character == U'\n'
           || (QChar::isPrint(character) && category != QChar::Separator_Line
               && category != QChar::Separator_Paragraph);
}

std::string capabilitiesOf(const PhoneStatus& phone)
{
    if (phone.hasFiles && phone.hasWebManagement)
        return "files, web management";
    return phone.hasFiles ? "files" : "web management";
}

std::string plainTextOf(const PhoneStatus& phone)
{
    return "  " + shownUtf8(phone.name) + "\n    " + capabilitiesOf(phone) + '\n';
}

std::string plainTextOf(const Traffic& traffic)
{
    return "    sessions: " + std::to_string(traffic.sessions) + " now, "
           + std::to_string(traffic.sessionsInAll) + " in all\n"
           + "    bytes: " + std::to_string(traffic.bytesReceived) + " to the phone, "
           + std::to_string(traffic.bytesSent) + " from the phone\n";
}

std::string plainTextOf(const RelayStatus& relay)
{
    const std::string host = relay.host.empty() ? "" : "    host: " + shownUtf8(relay.host) + '\n';
    return "  " + shownUtf8(relay.name) + "\n    target: " + shownUtf8(relay.target) + '\n' + host
           + plainTextOf(relay.traffic);
}

} // namespace

/// Bytes that are not UTF-8 become U+FFFD.
QJsonObject jsonOf(const HelperStatus& status)
{
    QJsonArray phones;
    for (const PhoneStatus& phone : status.phones)
        phones.append(QJsonObject{{u"name"_s, QString::fromStdString(phone.name)},
                                  {u"files"_s, phone.hasFiles},
                                  {u"webManagement"_s, phone.hasWebManagement}});
    QJsonArray relays;
    for (const RelayStatus& relay : status.relays) {
        QJsonObject entry{{u"name"_s, QString::fromStdString(relay.name)},
                          {u"target"_s, QString::fromStdString(relay.target)}};
        if (!relay.host.empty())
            entry["host"_L1] = QString::fromStdString(relay.host);
        insert(entry, relay.traffic);
        relays.append(entry);
    }
    QJsonObject json{{u"version"_s, 1},
                     {u"ready"_s, status.isReady},
                     {u"status"_s, QString::fromStdString(status.text)},
                     {u"hint"_s, QString::fromStdString(status.hint)},
                     {u"showInFinder"_s, status.isShownInFinder},
                     {u"automaticDiscovery"_s, status.isAutomatic},
                     {u"phones"_s, phones},
                     {u"relays"_s, relays}};
    if (status.start) {
        json["thisComputerOnly"_L1] = status.start->reach == Reach::ThisComputer;
        json["dnsSd"_L1] = QLatin1StringView(nameOf(status.start->dnsSd));
    }
    insert(json, status.total);
    return json;
}

std::optional<HelperStatus> helperStatusIn(const QJsonObject& json)
{
    const HelperStatus status = statusIn(json);
    QJsonObject exact = jsonOf(status);
    if (!json.contains("hint"_L1))
        exact.remove("hint"_L1);
    return json == exact ? std::optional(status) : std::nullopt;
}

std::string jsonText(const HelperStatus& status)
{
    return jsonText(QJsonDocument(jsonOf(status)));
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

std::string plainText(const HelperStatus& status)
{
    std::string text = std::string("Status: ") + (status.isReady ? "ready: " : "not ready: ")
                       + shownUtf8(status.text);
    if (!status.hint.empty())
        text += "\nHint: " + shownUtf8(status.hint);
    text += std::string("\nShow in Finder: ") + (status.isShownInFinder ? "on" : "off");
    text += std::string("\nAutomatic discovery: ") + (status.isAutomatic ? "on" : "off");
    if (status.start) {
        text += std::string("\nThis computer only: ")
                + (status.start->reach == Reach::ThisComputer ? "on" : "off");
        text += std::string("\nDNS-SD: ") + nameOf(status.start->dnsSd);
    }
    text += "\nPhones: " + std::to_string(status.phones.size()) + '\n';
    for (const PhoneStatus& phone : status.phones)
        text += plainTextOf(phone);
    text += "Relays: " + std::to_string(status.relays.size()) + '\n';
    for (const RelayStatus& relay : status.relays)
        text += plainTextOf(relay);
    return text + "Since the start:\n" + plainTextOf(status.total);
}

} // namespace quillbox
