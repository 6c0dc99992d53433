#include "app/doctor_checks.h"

#include <optional>
#include <utility>

namespace quillbox::doctor {

namespace {

constexpr const char* kFirewall = "firewall";
constexpr const char* kOthers =
    "; other computers reach a relay only where its port is allowed as well.";

/// What became of the questions that left: the firewall treats them, as they come back in, as it
/// treats those of other hosts.
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

/// Of something that keeps packets out, by what came in.
Finding keeperFinding(const SystemFacts& system, const std::string& name)
{
    const std::string advice = howToLetMulticastDnsIn(system.firewall);
    switch (letIn(system)) {
    case LetIn::All:
        return ok(kFirewall, name + " is on and lets multicast DNS in" + kOthers);
    case LetIn::Some:
        return warn(kFirewall, name + " is on and lets only a part of multicast DNS in.", advice);
    case LetIn::Untried:
        return warn(kFirewall,
                    name + " is on; whether it lets multicast DNS in could not be tried.", advice);
    case LetIn::None:
        break;
    }
    return fail(kFirewall, name + " is on and keeps multicast DNS out.", advice);
}

std::optional<Finding> rulesFinding(const SystemFacts& system)
{
    const FirewallFacts& firewall = system.firewall;
    if (firewall.dropsMulticastDns && letIn(system) != LetIn::All)
        return fail(kFirewall, "A rule of the packet filter throws UDP 5353 away.",
                    "Find and delete it: 'sudo nft -a list ruleset'.");
    // What a program manages is judged under its name.
    if (isManaged(firewall))
        return std::nullopt;
    if (firewall.dropsInput)
        return keeperFinding(system, "The packet filter");
    if (firewall.dropsOutput)
        return warn(kFirewall, "The packet filter throws some packets of this computer away.",
                    "'sudo nft list ruleset' shows which; UDP 5353 and the phone's port have to "
                    "leave.");
    return ok(kFirewall, "The packet filter throws nothing away.");
}

} // namespace

std::string howToLetMulticastDnsIn(const FirewallFacts& firewall)
{
    if (firewall.ufw == Seen::Yes)
        return "'sudo ufw allow 5353/udp'";
    if (firewall.firewalld == Seen::Yes)
        return "'sudo firewall-cmd --permanent --add-service=mdns', 'sudo firewall-cmd --reload'";
    return "Let UDP 5353 in; 'sudo nft list ruleset' shows what is thrown away.";
}

Findings checkFirewall(const SystemFacts& system)
{
    const FirewallFacts& firewall = system.firewall;
    Findings findings;
    if (firewall.ufw == Seen::Yes)
        findings.push_back(keeperFinding(system, "ufw"));
    else if (firewall.ufw == Seen::Unknown)
        findings.push_back(
            warn(kFirewall, "Whether ufw is on could not be read.", "'sudo ufw status' says it."));
    if (firewall.firewalld == Seen::Yes)
        findings.push_back(keeperFinding(system, "firewalld"));
    else if (firewall.firewalld == Seen::Unknown)
        findings.push_back(warn(kFirewall, "Whether firewalld runs could not be found out.",
                                "'sudo firewall-cmd --state' says it."));
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
        findings.push_back(warn(kFirewall, "This user may not see the rules of the packet filter.",
                                "'sudo nft list ruleset' shows them: UDP 5353 has to come in."));
        break;
    case FirewallFacts::Rules::Unknown:
        findings.push_back(warn(kFirewall, "The rules of the packet filter could not be read.",
                                "'sudo nft list ruleset' shows them: UDP 5353 has to come in."));
        break;
    }
    return findings;
}

} // namespace quillbox::doctor
