#include "control/helper_status.h"

#include "control/json_form.h"
#include "ui/shown_text.h"

#include <QJsonDocument>

namespace quillbox {

namespace {

void describeTraffic(JsonForm& form, Traffic& traffic)
{
    form.member("sessions", traffic.sessions);
    form.member("sessionsInAll", traffic.sessionsInAll);
    form.member("bytesToPhone", traffic.bytesReceived);
    form.member("bytesFromPhone", traffic.bytesSent);
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

void PhoneStatus::describe(JsonForm& form)
{
    form.member("name", name);
    form.member("files", hasFiles);
    form.member("webManagement", hasWebManagement);
}

void RelayStatus::describe(JsonForm& form)
{
    form.member("name", name);
    form.member("target", target);
    describeTraffic(form, traffic);
}

void HelperStatus::describe(JsonForm& form)
{
    form.version(1);
    form.member("ready", isReady);
    form.member("status", text);
    std::optional<std::string> told = hint;
    form.member("hint", told);
    hint = told.value_or("");
    form.member("showInFinder", isShownInFinder);
    form.member("automaticDiscovery", isAutomatic);
    if (form.has("dnsSd", start)) {
        bool isThisComputerOnly = start->reach == Reach::ThisComputer;
        form.member("thisComputerOnly", isThisComputerOnly);
        start->reach = isThisComputerOnly ? Reach::ThisComputer : Reach::Network;
        form.choice("dnsSd", start->dnsSd, kDnsSdNames);
    }
    form.member("phones", phones);
    form.member("relays", relays);
    describeTraffic(form, total);
}

std::string jsonText(const HelperStatus& status)
{
    return jsonText(QJsonDocument(JsonForm::of(status)));
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
