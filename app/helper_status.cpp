#include "app/helper_status.h"

#include "app/json_text.h"
#include "app/shown_text.h"
#include "app/strict_object.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace quillbox {

namespace {

constexpr int kVersion = 1;

constexpr const char* kVersionKey = "version";
constexpr const char* kReady = "ready";
constexpr const char* kText = "status";
constexpr const char* kShowInFinder = "showInFinder";
constexpr const char* kAutomaticDiscovery = "automaticDiscovery";
constexpr const char* kPhones = "phones";
constexpr const char* kRelays = "relays";
constexpr const char* kName = "name";
constexpr const char* kFiles = "files";
constexpr const char* kWebManagement = "webManagement";
constexpr const char* kTarget = "target";
constexpr const char* kSessions = "sessions";
constexpr const char* kSessionsInAll = "sessionsInAll";
constexpr const char* kBytesToPhone = "bytesToPhone";
constexpr const char* kBytesFromPhone = "bytesFromPhone";

void set(QJsonObject& object, const char* key, const QJsonValue& value)
{
    object.insert(QLatin1StringView(key), value);
}

void setNumber(QJsonObject& object, const char* key, std::uint64_t number)
{
    set(object, key, static_cast<qint64>(number));
}

void setTraffic(QJsonObject& object, const Traffic& traffic)
{
    setNumber(object, kSessions, traffic.sessions);
    setNumber(object, kSessionsInAll, traffic.sessionsInAll);
    setNumber(object, kBytesToPhone, traffic.bytesReceived);
    setNumber(object, kBytesFromPhone, traffic.bytesSent);
}

Traffic trafficIn(StrictObject& object)
{
    return {.sessions = object.number(kSessions),
            .sessionsInAll = object.number(kSessionsInAll),
            .bytesReceived = object.number(kBytesToPhone),
            .bytesSent = object.number(kBytesFromPhone)};
}

PhoneStatus phoneIn(StrictObject& object)
{
    return {.name = object.text(kName),
            .hasFiles = object.truth(kFiles),
            .hasWebManagement = object.truth(kWebManagement)};
}

RelayStatus relayIn(StrictObject& object)
{
    return {
        .name = object.text(kName), .target = object.text(kTarget), .traffic = trafficIn(object)};
}

/// The entries of a list, each read by `read`.
template <typename Entry>
std::vector<Entry> entriesIn(StrictObject& object, const char* key, Entry (*read)(StrictObject&))
{
    std::vector<Entry> entries;
    for (const auto& value : object.list(key)) {
        StrictObject entry(value.toObject());
        entries.push_back(read(entry));
        if (!value.isObject() || !entry.isSound())
            object.refuse();
    }
    return entries;
}

std::string shown(const std::string& text)
{
    return shownText(text).toStdString();
}

std::string capabilitiesOf(const PhoneStatus& phone)
{
    if (phone.hasFiles && phone.hasWebManagement)
        return "files, web management";
    return phone.hasFiles ? "files" : "web management";
}

std::string plainTextOf(const PhoneStatus& phone)
{
    return "  " + shown(phone.name) + "\n    " + capabilitiesOf(phone) + '\n';
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
    return "  " + shown(relay.name) + "\n    target: " + shown(relay.target) + '\n'
           + plainTextOf(relay.traffic);
}

} // namespace

QJsonObject jsonOf(const HelperStatus& status)
{
    QJsonObject object;
    set(object, kVersionKey, kVersion);
    set(object, kReady, status.isReady);
    set(object, kText, jsonString(status.text));
    set(object, kShowInFinder, status.isShownInFinder);
    set(object, kAutomaticDiscovery, status.isAutomatic);
    QJsonArray phones;
    for (const PhoneStatus& phone : status.phones) {
        QJsonObject entry;
        set(entry, kName, jsonString(phone.name));
        set(entry, kFiles, phone.hasFiles);
        set(entry, kWebManagement, phone.hasWebManagement);
        phones.append(entry);
    }
    set(object, kPhones, phones);
    QJsonArray relays;
    for (const RelayStatus& relay : status.relays) {
        QJsonObject entry;
        set(entry, kName, jsonString(relay.name));
        set(entry, kTarget, jsonString(relay.target));
        setTraffic(entry, relay.traffic);
        relays.append(entry);
    }
    set(object, kRelays, relays);
    setTraffic(object, status.total);
    return object;
}

std::optional<HelperStatus> helperStatusIn(const QJsonObject& object)
{
    StrictObject strict(object);
    if (strict.number(kVersionKey) != kVersion)
        return std::nullopt;
    HelperStatus status{.isReady = strict.truth(kReady),
                        .text = strict.text(kText),
                        .isShownInFinder = strict.truth(kShowInFinder),
                        .isAutomatic = strict.truth(kAutomaticDiscovery),
                        .phones = entriesIn(strict, kPhones, phoneIn),
                        .relays = entriesIn(strict, kRelays, relayIn),
                        .total = trafficIn(strict)};
    if (!strict.isSound())
        return std::nullopt;
    return status;
}

std::string jsonText(const HelperStatus& status)
{
    return jsonText(QJsonDocument(jsonOf(status)));
}

std::string plainText(const HelperStatus& status)
{
    std::string text =
        std::string("Status: ") + (status.isReady ? "ready: " : "not ready: ") + shown(status.text);
    text += std::string("\nShow in Finder: ") + (status.isShownInFinder ? "on" : "off");
    text += std::string("\nAutomatic discovery: ") + (status.isAutomatic ? "on" : "off");
    text += "\nPhones: " + std::to_string(status.phones.size()) + '\n';
    for (const PhoneStatus& phone : status.phones)
        text += plainTextOf(phone);
    text += "Relays: " + std::to_string(status.relays.size()) + '\n';
    for (const RelayStatus& relay : status.relays)
        text += plainTextOf(relay);
    return text + "Since the start:\n" + plainTextOf(status.total);
}

} // namespace quillbox
