#include "app/doctor_checks.h"
#include "discovery/phone_discovery.h"
#include "platform/text.h"

#include <algorithm>

namespace quillbox::doctor {

namespace {

using State = PortFacts::State;

constexpr const char* kPhones = "phones";
constexpr const char* kRunningCopy = "running-copy";

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
        return fail(kPhones,
                    inDoubleQuotes(phone.name) + " is announced, but nobody tells its address.",
                    "It may have left or fallen asleep: open the Quillbox app on the phone, and "
                    "look again.");
    if (has(phone, State::Open))
        return ok(kPhones, where + " takes connections.");
    if (has(phone, State::Refused))
        return fail(kPhones, where + " refuses connections.",
                    "The file server on the phone is off: turn sharing on in the Quillbox app.");
    if (has(phone, State::Silent))
        return fail(kPhones, where + " does not answer.",
                    "A firewall, a VPN or the access point throws the connection away: see the "
                    "lines above.");
    return fail(kPhones, where + " cannot be reached.",
                "There is no way to that address: see the lines on interfaces and VPN above.");
}

/// It matters little beside a phone that is shown.
Finding otherNameFinding(const PhoneFacts& phone, bool isAnyShown)
{
    return {kPhones, isAnyShown ? Finding::Result::Warn : Finding::Result::Fail,
            inDoubleQuotes(phone.name)
                + " is not shown: its name does not begin with the word Quillbox.",
            R"(Call it "Quillbox" or "Quillbox " and more, in the app on the phone.)"};
}

Finding noPhone(const DoctorFacts& facts)
{
    const char* advice =
        "Open the Quillbox app on the phone, turn sharing on, and see that it is in "
        "the network of this computer.";
    if (facts.copy.status && !facts.copy.status->isAutomatic)
        return warn(kPhones, "No phone is found; the helper uses a typed address instead.",
                    "Turn automatic discovery on if the phone is to be found.");
    return fail(kPhones, "No phone is found on this network.", advice);
}

Finding statusFinding(const HelperStatus& status)
{
    if (!status.isShownInFinder)
        return warn(kRunningCopy, "The helper runs and shows no phone: that is turned off.",
                    "'quillbox-helper restart' turns it on.");
    if (!status.isReady)
        return warn(kRunningCopy, "The helper runs and says: " + status.text,
                    "Mend what fails above; 'quillbox-helper restart' begins anew.");
    return ok(kRunningCopy, "The helper runs with " + counted(status.relays.size(), "relay")
                                + " and says: " + status.text);
}

} // namespace

bool isReached(const PhoneFacts& phone)
{
    return has(phone, State::Open);
}

bool isPhoneReached(const PhonesFacts& phones)
{
    return std::any_of(phones.phones.begin(), phones.phones.end(), isReached);
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
                                    "Give each a name of its own in the app."));
    }
    return findings;
}

Findings checkRunningCopy(const RunningCopyFacts& copy)
{
    using CopyState = RunningCopyFacts::State;
    switch (copy.state) {
    case CopyState::NotRunning:
        return {warn(kRunningCopy, "The helper does not run.",
                     "Start it: 'quillbox-helper', or at each login: 'quillbox-helper "
                     "--autostart=on'.")};
    case CopyState::Silent:
        return {fail(kRunningCopy, "The helper runs and does not answer.",
                     "End it and start it anew: 'pkill -x -u \"$USER\" quillbox-helper'.")};
    case CopyState::OtherVersion:
        return {warn(kRunningCopy, "The helper that runs is of another version.",
                     "Quit it in its menu, and start it anew.")};
    case CopyState::Answered:
        break;
    }
    return {statusFinding(copy.status.value_or(HelperStatus()))};
}

} // namespace quillbox::doctor
