#include "app/doctor_checks.h"
#include "platform/network.h"

#include <optional>
#include <string>
#include <utility>

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

bool isManaged(const FirewallFacts& firewall)
{
    return firewall.ufw == Seen::Yes || firewall.firewalld == Seen::Yes;
}

/// The finding for a firewall, judged by the multicast that it let in.
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

std::optional<Finding> rulesFinding(const SystemFacts& system)
{
    const FirewallFacts& firewall = system.firewall;
    if (firewall.dropsMulticastDns && letIn(system) != LetIn::All)
        return fail(kFirewall, "A packet filter rule drops UDP 5353.",
                    "Find and delete it: 'sudo nft -a list ruleset'.");
    // The rules of ufw and firewalld are reported under their names.
    if (isManaged(firewall))
        return std::nullopt;
    if (firewall.dropsInput)
        return keeperFinding(system, "The packet filter");
    if (firewall.dropsOutput)
        return warn(kFirewall, "The packet filter drops some outgoing packets.",
                    "'sudo nft list ruleset' shows which; UDP 5353 and the phone's port must be "
                    "allowed.");
    return ok(kFirewall, "The packet filter drops nothing.");
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
    switch (firewall.rules) {
    case FirewallFacts::Rules::Read:
        if (auto finding = rulesFinding(system))
            findings.push_back(std::move(*finding));
        break;
    case FirewallFacts::Rules::NoProgram:
        if (findings.empty())
            findings.push_back(ok(kFirewall, "No firewall program is installed."));
        break;
    case FirewallFacts::Rules::NotAllowed:
        findings.push_back(
            warn(kFirewall, "This user is not allowed to read the packet filter rules.",
                 "'sudo nft list ruleset' shows them: incoming UDP 5353 must be allowed."));
        break;
    case FirewallFacts::Rules::Unknown:
        findings.push_back(
            warn(kFirewall, "Could not read the packet filter rules.",
                 "'sudo nft list ruleset' shows them: incoming UDP 5353 must be allowed."));
        break;
    }
    return findings;
}

} // namespace quillbox::doctor
