#include "discovery/phone_discovery.h"
#include "doctor/doctor_checks.h"
#include "platform/values/text.h"

#include <algorithm>

namespace quillbox::doctor {

namespace {

using State = PortFacts::State;

constexpr const char* kPhones = "phones";
constexpr const char* kRunningCopy = "running-copy";
constexpr const char* kSettings = "settings";

bool has(const PhoneFacts& phone, State state)
{
    return std::any_of(phone.addresses.begin(), phone.addresses.end(),
                       [state](const PortFacts& each) { return each.state == state; });
}

std::vector<std::string> addressesOf(const PhoneFacts& phone)
{
    std::vector<std::string> addresses;
    for (const PortFacts& each : phone.addresses)
        addresses.push_back(each.address);
    return addresses;
}

Finding phoneFinding(const PhoneFacts& phone)
{
    const std::string where = inDoubleQuotes(phone.name) + " at " + listed(addressesOf(phone))
                              + ", port " + std::to_string(phone.port) + ',';
    if (phone.addresses.empty())
        return fail(kPhones, inDoubleQuotes(phone.name) + " is announced, but cannot be resolved.",
                    "It may have left the network or gone to sleep: open the Quillbox app on the "
                    "phone and run the doctor again.");
    if (has(phone, State::Open))
        return ok(kPhones, where + " accepts connections.");
    if (has(phone, State::Refused))
        return fail(kPhones, where + " refuses connections.",
                    "The file server on the phone is off: turn sharing on in the Quillbox app.");
    if (has(phone, State::Silent))
        return fail(kPhones, where + " does not answer.",
                    "A firewall, a VPN or the access point drops the connection: see the lines "
                    "above.");
    return fail(kPhones, where + " cannot be reached.",
                "There is no route to that address: see the lines on interfaces and VPN above.");
}

/// Only a warning if another phone is shown.
Finding otherNameFinding(const PhoneFacts& phone, bool isAnyShown)
{
    return {kPhones, isAnyShown ? Finding::Result::Warn : Finding::Result::Fail,
            inDoubleQuotes(phone.name)
                + " is not shown: its name does not begin with the word Quillbox.",
            R"(In the app on the phone, rename it to "Quillbox" or "Quillbox NAME".)"};
}

Finding noPhone(const DoctorFacts& facts)
{
    const char* advice =
        "Open the Quillbox app on the phone, turn sharing on, and check that the phone is on the "
        "same network as this computer.";
    if (facts.copy.status && !facts.copy.status->isAutomatic)
        return warn(kPhones, "No phone was found; the helper uses a manually entered address.",
                    "Turn on automatic discovery to have the helper find the phone.");
    return fail(kPhones, "No phone was found on this network.", advice);
}

Finding statusFinding(const HelperStatus& status)
{
    if (!status.isShownInFinder)
        return warn(kRunningCopy,
                    "The helper is running, but showing phones in the file manager is turned off.",
                    "'quillbox-helper restart' turns it on.");
    if (!status.isReady)
        return warn(kRunningCopy, "The helper is running; its status is: " + status.text,
                    "Fix what fails above, then run 'quillbox-helper restart'.");
    return ok(kRunningCopy, "The helper is running with " + counted(status.relays.size(), "relay")
                                + "; its status is: " + status.text);
}

Finding reachFinding(Reach reach)
{
    if (reach == Reach::Network)
        return ok(kSettings, "Other computers see and reach the phones through this one as well.");
    return ok(kSettings, "No other computer sees or reaches the phones through this one; a start "
                         "with 'quillbox-helper --this-computer-only=off' changes that.");
}

Finding engineFinding(DnsSdChoice mode, const SystemFacts& system)
{
    const std::string change = "; a start with 'quillbox-helper --dns-sd=auto' changes that.";
    switch (mode) {
    case DnsSdChoice::Automatic:
        return ok(kSettings, "The helper uses avahi-daemon if it is running, otherwise the "
                             "embedded engine.");
    case DnsSdChoice::Embedded:
        return ok(kSettings, "The helper uses only its embedded engine" + change);
    case DnsSdChoice::Daemon:
        break;
    }
    using Avahi = AvahiFacts::State;
    if (system.avahi.state == Avahi::NoBus || system.avahi.state == Avahi::Absent)
        return fail(kSettings, "The helper uses only avahi-daemon, which is not running" + change,
                    system.packageManager.howToRunAvahiDaemon() + '.');
    return ok(kSettings, "The helper uses only avahi-daemon" + change);
}

} // namespace

bool isPhoneReached(const PhonesFacts& phones)
{
    return std::any_of(phones.phones.begin(), phones.phones.end(),
                       [](const PhoneFacts& each) { return has(each, State::Open); });
}

Findings checkPhones(const DoctorFacts& facts)
{
    const auto& phones = facts.system.phones.phones;
    if (phones.empty())
        return {noPhone(facts)};
    const bool isAnyShown = std::any_of(phones.begin(), phones.end(), [](const PhoneFacts& each) {
        return isNamedAfterProduct(each.name);
    });
    Findings findings;
    for (const PhoneFacts& each : phones) {
        if (!isNamedAfterProduct(each.name)) {
            findings.push_back(otherNameFinding(each, isAnyShown));
            continue;
        }
        findings.push_back(phoneFinding(each));
        if (each.hosts > 1)
            findings.push_back(warn(kPhones,
                                    "Several phones are called " + inDoubleQuotes(each.name) + '.',
                                    "Give each phone a unique name in the app."));
    }
    return findings;
}

Findings checkRunningCopy(const RunningCopyFacts& copy)
{
    using CopyState = RunningCopyFacts::State;
    switch (copy.state) {
    case CopyState::NotRunning:
        return {warn(kRunningCopy, "The helper is not running.",
                     "Start it with 'quillbox-helper'; to start it at each login, run "
                     "'quillbox-helper --autostart=on'.")};
    case CopyState::Silent:
        return {fail(kRunningCopy, "The helper is running, but does not answer.",
                     "End it with 'pkill -x -u \"$USER\" quillbox-helper' and start it again.")};
    case CopyState::OtherVersion:
        return {warn(kRunningCopy, "The running helper is a different version.",
                     "Quit it from its menu and start it again.")};
    case CopyState::Answered:
        break;
    }
    return {statusFinding(copy.status.value_or(HelperStatus()))};
}

Findings checkStartSettings(const DoctorFacts& facts)
{
    Findings findings;
    if (!facts.settingsProblem.empty())
        findings.push_back(warn(kSettings,
                                "The settings cannot be used: " + facts.settingsProblem + '.',
                                "Fix or remove the file; until then a start opens the relays to "
                                "this computer only, unless it has --this-computer-only=off."));
    std::optional<StartSettings> now = facts.next;
    if (facts.copy.state != RunningCopyFacts::State::NotRunning)
        now = facts.copy.status ? facts.copy.status->start : std::nullopt;
    if (!now) {
        findings.push_back(warn(kSettings, "The running helper does not tell its settings.",
                                "Quit it from its menu and start it again."));
        return findings;
    }
    findings.push_back(reachFinding(now->reach));
    findings.push_back(engineFinding(now->dnsSd, facts.system));
    if (*now != facts.next)
        findings.push_back(
            warn(kSettings,
                 "The running helper does not have the stored settings: "
                 "this computer only "
                     + std::string(facts.next.reach == Reach::ThisComputer ? "on" : "off")
                     + ", DNS-SD " + nameOf(facts.next.dnsSd) + '.',
                 "For these to hold, run 'quillbox-helper quit' and start it again."));
    return findings;
}

} // namespace quillbox::doctor
