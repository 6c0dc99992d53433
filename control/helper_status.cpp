#include "control/helper_status.h"

#include "control/strict_object.h"
#include "ui/shown_text.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace quillbox {

namespace {

constexpr int kStatusVersion = 1;

constexpr const char* kVersionField = "version";
constexpr const char* kReadyField = "ready";
constexpr const char* kTextField = "status";
constexpr const char* kHintField = "hint";
constexpr const char* kShowInFinderField = "showInFinder";
constexpr const char* kAutomaticDiscoveryField = "automaticDiscovery";
constexpr const char* kThisComputerOnlyField = "thisComputerOnly";
constexpr const char* kDnsSdField = "dnsSd";
constexpr const char* kPhonesField = "phones";
constexpr const char* kRelaysField = "relays";
constexpr const char* kNameField = "name";
constexpr const char* kFilesField = "files";
constexpr const char* kWebManagementField = "webManagement";
constexpr const char* kTargetField = "target";
constexpr const char* kSessionsField = "sessions";
constexpr const char* kSessionsInAllField = "sessionsInAll";
constexpr const char* kBytesToPhoneField = "bytesToPhone";
constexpr const char* kBytesFromPhoneField = "bytesFromPhone";

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
    setNumber(object, kSessionsField, traffic.sessions);
    setNumber(object, kSessionsInAllField, traffic.sessionsInAll);
    setNumber(object, kBytesToPhoneField, traffic.bytesReceived);
    setNumber(object, kBytesFromPhoneField, traffic.bytesSent);
}

Traffic trafficIn(StrictObject& object)
{
    return {.sessions = object.number(kSessionsField),
            .sessionsInAll = object.number(kSessionsInAllField),
            .bytesReceived = object.number(kBytesToPhoneField),
            .bytesSent = object.number(kBytesFromPhoneField)};
}

PhoneStatus phoneIn(StrictObject& object)
{
    return {.name = object.text(kNameField),
            .hasFiles = object.truth(kFilesField),
            .hasWebManagement = object.truth(kWebManagementField)};
}

RelayStatus relayIn(StrictObject& object)
{
    return {.name = object.text(kNameField),
            .target = object.text(kTargetField),
            .traffic = trafficIn(object)};
}

/// The entries of a list, each read by `read`.
template <typename Entry>
std::vector<Entry> entriesIn(StrictObject& object, const char* key, Entry (*read)(StrictObject&))
{
    std::vector<Entry> entries;
    for (const auto& value : object.list(key)) {
        StrictObject entry(value.toObject());
        entries.push_back(read(entry));
        if (!entry.isSound())
            object.refuse();
    }
    return entries;
}

StartSettings startSettingsIn(StrictObject& object)
{
    const bool isThisComputerOnly = object.truth(kThisComputerOnlyField);
    const auto dnsSd = dnsSdChoiceNamed(object.text(kDnsSdField));
    if (!dnsSd)
        object.refuse();
    return {.reach = isThisComputerOnly ? Reach::ThisComputer : Reach::Network,
            .dnsSd = dnsSd.value_or(DnsSdChoice::Automatic)};
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
    return "  " + shownUtf8(relay.name) + "\n    target: " + shownUtf8(relay.target) + '\n'
           + plainTextOf(relay.traffic);
}

} // namespace

QJsonObject jsonOf(const HelperStatus& status)
{
    QJsonObject object;
    set(object, kVersionField, kStatusVersion);
    set(object, kReadyField, status.isReady);
    set(object, kTextField, jsonString(status.text));
    set(object, kHintField, jsonString(status.hint));
    set(object, kShowInFinderField, status.isShownInFinder);
    set(object, kAutomaticDiscoveryField, status.isAutomatic);
    if (status.start) {
        set(object, kThisComputerOnlyField, status.start->reach == Reach::ThisComputer);
        set(object, kDnsSdField, QLatin1StringView(nameOf(status.start->dnsSd)));
    }
    QJsonArray phones;
    for (const PhoneStatus& phone : status.phones) {
        QJsonObject entry;
        set(entry, kNameField, jsonString(phone.name));
        set(entry, kFilesField, phone.hasFiles);
        set(entry, kWebManagementField, phone.hasWebManagement);
        phones.append(entry);
    }
    set(object, kPhonesField, phones);
    QJsonArray relays;
    for (const RelayStatus& relay : status.relays) {
        QJsonObject entry;
        set(entry, kNameField, jsonString(relay.name));
        set(entry, kTargetField, jsonString(relay.target));
        setTraffic(entry, relay.traffic);
        relays.append(entry);
    }
    set(object, kRelaysField, relays);
    setTraffic(object, status.total);
    return object;
}

std::optional<HelperStatus> helperStatusIn(const QJsonObject& object)
{
    StrictObject strict(object);
    if (strict.number(kVersionField) != kStatusVersion)
        return std::nullopt;
    HelperStatus status{.isReady = strict.truth(kReadyField),
                        .text = strict.text(kTextField),
                        // Version 0.1.0 wrote neither a hint nor the start settings.
                        .hint = strict.has(kHintField) ? strict.text(kHintField) : "",
                        .isShownInFinder = strict.truth(kShowInFinderField),
                        .isAutomatic = strict.truth(kAutomaticDiscoveryField),
                        .start = strict.has(kDnsSdField) ? std::optional(startSettingsIn(strict))
                                                         : std::nullopt,
                        .phones = entriesIn(strict, kPhonesField, phoneIn),
                        .relays = entriesIn(strict, kRelaysField, relayIn),
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
