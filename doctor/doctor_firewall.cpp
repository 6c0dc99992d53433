#include "doctor/doctor_checks.h"
#include "platform/network.h"

#include <string>

namespace quillbox::doctor {

namespace {

constexpr const char* kFirewall = "firewall";

/// Follows what the firewall allows.
std::string forOthers()
{
    return "; other computers can reach a relay only if its port is allowed as well (TCP "
           + std::to_string(kServicePorts.first) + " to " + std::to_string(kServicePorts.last)
           + ").";
}

/// How many of the queries that were sent came back in: the firewall treats them like those of
/// other hosts.
enum class LetIn { Untried, All, Some, None };

LetIn letIn(const SystemFacts& system)
{
    bool isAnyIn = false;
    bool isAnyOut = false;
    for (const InterfaceFacts& each : system.interfaces) {
        for (const MulticastFacts* facts : {&each.ipv4, &each.ipv6}) {
            if (!isUsable(each) || !facts->isTried || facts->listenError || facts->sendError)
                continue;
            (facts->isOwnHeard ? isAnyIn : isAnyOut) = true;
        }
    }
    if (isAnyIn)
        return isAnyOut ? LetIn::Some : LetIn::All;
    return isAnyOut ? LetIn::None : LetIn::Untried;
}

/// The finding for the firewall of that name, judged by the multicast that it let in.
Finding keeperFinding(const SystemFacts& system, const std::string& name)
{
    const std::string advice = howToLetMulticastDnsIn(system.firewall);
    switch (letIn(system)) {
    case LetIn::All:
        return ok(kFirewall, name + " is on and allows multicast DNS" + forOthers());
    case LetIn::Some:
        return warn(kFirewall, name + " is on and blocks some multicast DNS.", advice);
    case LetIn::Untried:
        return warn(kFirewall, name + " is on; could not test whether it allows multicast DNS.",
                    advice);
    case LetIn::None:
        break;
    }
    return fail(kFirewall, name + " is on and blocks multicast DNS.", advice);
}

/// The finding where neither ufw nor firewalld is on. There may be a packet filter all the same.
Finding otherFinding(const SystemFacts& system)
{
    switch (letIn(system)) {
    case LetIn::All:
        return ok(kFirewall, "No firewall on this computer blocks multicast DNS.");
    case LetIn::Untried:
        return ok(kFirewall, "Neither ufw nor firewalld is on.");
    case LetIn::Some:
    case LetIn::None:
        break;
    }
    return keeperFinding(system, "A packet filter");
}

} // namespace

std::string howToLetMulticastDnsIn(const FirewallFacts& firewall)
{
    if (firewall.ufw == Seen::Yes)
        return "'sudo ufw allow 5353/udp'";
    if (firewall.firewalld == Seen::Yes)
        return "'sudo firewall-cmd --permanent --add-service=mdns', 'sudo firewall-cmd --reload'";
    return "Allow incoming UDP 5353; 'sudo nft list ruleset' shows what is dropped.";
}

Findings checkFirewall(const SystemFacts& system)
{
    const FirewallFacts& firewall = system.firewall;
    Findings findings;
    if (firewall.ufw == Seen::Yes)
        findings.push_back(keeperFinding(system, "ufw"));
    else if (firewall.ufw == Seen::Unknown)
        findings.push_back(
            warn(kFirewall, "Could not determine whether ufw is on.", "Run 'sudo ufw status'."));
    if (firewall.firewalld == Seen::Yes)
        findings.push_back(keeperFinding(system, "firewalld"));
    else if (firewall.firewalld == Seen::Unknown)
        findings.push_back(warn(kFirewall, "Could not determine whether firewalld is running.",
                                "Run 'sudo firewall-cmd --state'."));
    if (findings.empty())
        findings.push_back(otherFinding(system));
    return findings;
}

} // namespace quillbox::doctor
