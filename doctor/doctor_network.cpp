#include "doctor/doctor_checks.h"
#include "platform/network.h"

#include <algorithm>
#include <array>

namespace quillbox::doctor {

namespace {

using Kind = InterfaceFacts::Kind;

constexpr const char* kInterfaces = "interfaces";
constexpr const char* kMulticast = "multicast";
constexpr const char* kOtherHosts = "other-hosts";
constexpr const char* kVpn = "vpn";
constexpr const char* kFirewall = "firewall";
constexpr const char* kEngine = "dns-sd";

/// Whether an interface can reach a phone: it is up and has an address.
bool isUsable(const InterfaceFacts& interface)
{
    return interface.isRunning && !interface.addresses.empty();
}

bool isSound(const MulticastFacts& facts)
{
    return facts.isTried && !facts.listenError && !facts.sendError && facts.isOwnHeard;
}

/// Whether multicast queries can be sent and come back in, for at least one address family.
bool isMulticastSound(const InterfaceFacts& interface)
{
    return isSound(interface.ipv4) || isSound(interface.ipv6);
}

/// How to allow incoming multicast DNS, as advice for the firewall in use.
std::string howToLetMulticastDnsIn(const FirewallFacts& firewall)
{
    if (firewall.ufw == Seen::Yes)
        return "'sudo ufw allow 5353/udp'";
    if (firewall.firewalld == Seen::Yes)
        return "'sudo firewall-cmd --permanent --add-service=mdns', 'sudo firewall-cmd --reload'";
    return "Allow incoming UDP 5353; 'sudo nft list ruleset' shows what is dropped.";
}

const char* kindOf(const InterfaceFacts& interface)
{
    constexpr std::array kKinds{"wired", "wireless", "VPN", "bridge"};
    return kKinds.at(static_cast<std::size_t>(interface.kind));
}

/// What is wrong with one address family on an interface; empty if nothing is.
std::string troubleOf(const MulticastFacts& facts, const std::string& family,
                      const std::string& interface)
{
    if (!facts.isTried)
        return {};
    if (facts.sendError)
        return family + " multicast cannot be sent on " + interface + " ("
               + facts.sendError.message() + ")";
    if (facts.listenError)
        return "Cannot listen on UDP 5353 on " + interface + " with " + family + " ("
               + facts.listenError.message() + ")";
    if (!facts.isOwnHeard)
        return family + " multicast DNS is sent on "
               + interface + ", but nothing arrives on UDP 5353";
    return {};
}

std::string adviceFor(const MulticastFacts& facts, const FirewallFacts& firewall)
{
    if (facts.sendError == std::errc::operation_not_permitted)
        return "A firewall on this computer drops outgoing multicast: find the rule with 'sudo nft "
               "list ruleset'.";
    if (facts.sendError)
        return "Turn the connection off and on again; check the route with 'ip route get "
               "224.0.0.251'.";
    if (facts.listenError)
        return "Another program uses the port exclusively: 'sudo ss -ulnp sport = 5353' shows "
               "which.";
    return howToLetMulticastDnsIn(firewall);
}

Finding multicastOn(const InterfaceFacts& interface, const FirewallFacts& firewall)
{
    const std::string trouble4 = troubleOf(interface.ipv4, "IPv4", interface.name);
    const std::string trouble6 = troubleOf(interface.ipv6, "IPv6", interface.name);
    if (trouble4.empty() && trouble6.empty()) {
        // IPv4 if possible: with IPv6 a host may have several addresses and be counted twice.
        const auto answered =
            isSound(interface.ipv4) ? interface.ipv4.hostsAnswered : interface.ipv6.hostsAnswered;
        return ok(kMulticast, "Multicast DNS works on " + interface.name + "; "
                                  + counted(answered, "other host") + " answered.");
    }
    const std::string& trouble = trouble4.empty() ? trouble6 : trouble4;
    const std::string advice =
        adviceFor(trouble4.empty() ? interface.ipv6 : interface.ipv4, firewall);
    if (isMulticastSound(interface))
        return warn(kMulticast, trouble + "; the other address family works.", advice);
    return fail(kMulticast, trouble + '.', advice);
}

/// Whether multicast must work on it: no phone is behind a tunnel.
bool isJudged(const InterfaceFacts& interface)
{
    return isUsable(interface) && interface.kind != Kind::Vpn;
}

/// Follows what the firewall allows.
std::string forOthers(const FirewallFacts& firewall)
{
    const std::string first = std::to_string(kServicePorts.first);
    const std::string last = std::to_string(kServicePorts.last);
    const std::string text = "; other computers can reach a relay only if its port is allowed as "
                             "well (TCP "
                             + first + " to " + last + ")";
    if (firewall.ufw == Seen::Yes)
        return text + ": 'sudo ufw allow " + first + ':' + last + "/tcp'.";
    return text + ": 'sudo firewall-cmd --permanent --add-port=" + first + '-' + last
           + "/tcp', 'sudo firewall-cmd --reload'.";
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
        return ok(kFirewall, name + " is on and allows multicast DNS" + forOthers(system.firewall));
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

std::string counted(std::size_t count, const std::string& noun)
{
    return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

std::string listed(const std::vector<std::string>& words)
{
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i > 0)
            text += i + 1 == words.size() ? " and " : ", ";
        text += words[i];
    }
    return text;
}

Findings checkInterfaces(const SystemFacts& system)
{
    Findings findings;
    bool isAnyUsable = false;
    for (const InterfaceFacts& each : system.interfaces) {
        if (isUsable(each)) {
            isAnyUsable = isAnyUsable || each.kind != Kind::Vpn;
            findings.push_back(ok(kInterfaces, each.name + " (" + kindOf(each) + ") is up with "
                                                   + listed(each.addresses) + '.'));
        } else if (each.isRunning && each.kind != Kind::Bridge && each.kind != Kind::Vpn) {
            findings.push_back(warn(kInterfaces, each.name + " is connected but has no address.",
                                    "Wait for the router to assign one, or reconnect."));
        }
    }
    if (!isAnyUsable)
        findings.push_back(fail(kInterfaces, "No network interface is up with an address.",
                                "Connect this computer to the phone's network."));
    return findings;
}

Findings checkMulticast(const SystemFacts& system)
{
    Findings findings;
    for (const InterfaceFacts& each : system.interfaces) {
        if (!isJudged(each))
            continue;
        if (!each.hasMulticast)
            findings.push_back(warn(kMulticast, each.name + " has multicast turned off.",
                                    "'sudo ip link set " + each.name + " multicast on'"));
        else
            findings.push_back(multicastOn(each, system.firewall));
    }
    if (findings.empty())
        findings.push_back(fail(kMulticast, "There is no interface to send multicast DNS on.",
                                "Connect this computer to the phone's network."));
    return findings;
}

Findings checkOtherHosts(const SystemFacts& system)
{
    std::size_t heard = 0;
    std::size_t neighbours = 0;
    bool isSoundSomewhere = false;
    for (const InterfaceFacts& each : system.interfaces) {
        if (!isJudged(each))
            continue;
        heard += std::max(each.ipv4.hostsHeard, each.ipv6.hostsHeard);
        neighbours += each.neighbours;
        isSoundSomewhere = isSoundSomewhere || isMulticastSound(each);
    }
    if (heard > 0 || !system.phones.phones.empty())
        return {ok(kOtherHosts, "Other hosts can be heard.")};
    if (!isSoundSomewhere)
        return {warn(kOtherHosts, "No other host can be heard.", "Fix multicast first.")};
    if (neighbours > 0)
        return {warn(kOtherHosts,
                     "Multicast works on this computer, but " + counted(neighbours, "other host")
                         + " on the network did not answer.",
                     "The network may isolate its devices, as guest Wi-Fi does: connect both to "
                     "the same network, and turn off 'client isolation' (or 'AP isolation') in "
                     "the access point.")};
    return {warn(kOtherHosts, "This computer seems to be alone on its network.",
                 "Check that the phone is on the same network, and that the router connects Wi-Fi "
                 "and wired devices to each other.")};
}

Findings checkVpn(const SystemFacts& system)
{
    for (const InterfaceFacts& each : system.interfaces) {
        if (each.kind != Kind::Vpn || !each.isRunning || !each.hasDefaultRoute)
            continue;
        if (isPhoneReached(system.phones))
            return {ok(kVpn, "The VPN " + each.name + " carries all but the local traffic.")};
        return {warn(kVpn, "The VPN " + each.name + " carries all traffic.",
                     "Allow access to the local network in its settings, or disconnect it and run "
                     "the doctor again.")};
    }
    return {ok(kVpn, "No VPN carries all traffic.")};
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

Findings checkEngine(const SystemFacts& system)
{
    const AvahiFacts& avahi = system.avahi;
    const char* restart = "'sudo systemctl restart avahi-daemon'; 'journalctl -u avahi-daemon' "
                          "shows why.";
    if (system.phones.isEngineUp == Seen::No)
        return {fail(kEngine, "Neither avahi-daemon nor the embedded engine works.", restart)};
    switch (avahi.state) {
    case AvahiFacts::State::Running:
        return {ok(kEngine, avahi.version + " is running as " + avahi.hostName + '.')};
    case AvahiFacts::State::Registering:
        return {warn(kEngine, "avahi-daemon is still registering this computer's name.",
                     "Wait a few seconds; if it does not finish, another host has the same name.")};
    case AvahiFacts::State::Failed:
        return {fail(kEngine, "avahi-daemon has failed.", restart)};
    case AvahiFacts::State::Unknown:
        return {warn(kEngine, "avahi-daemon does not answer.", restart)};
    case AvahiFacts::State::NoBus:
    case AvahiFacts::State::Absent:
        break;
    }
    return {warn(kEngine,
                 "avahi-daemon is not running: the helper finds phones by itself, but file "
                 "managers list none.",
                 system.packageManager.howToRunAvahiDaemon() + '.')};
}

} // namespace quillbox::doctor
