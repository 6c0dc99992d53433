#include "app/doctor_checks.h"

#include <algorithm>
#include <string_view>

namespace quillbox::doctor {

namespace {

using Kind = InterfaceFacts::Kind;

constexpr const char* kInterfaces = "interfaces";
constexpr const char* kMulticast = "multicast";
constexpr const char* kOtherHosts = "other-hosts";
constexpr const char* kVpn = "vpn";
constexpr const char* kEngine = "dns-sd";
constexpr const char* kResponders = "responders";

const char* kindOf(const InterfaceFacts& interface)
{
    switch (interface.kind) {
    case Kind::Wired:
        return "wired";
    case Kind::Wireless:
        return "wireless";
    case Kind::Vpn:
        return "VPN";
    case Kind::Bridge:
        break;
    }
    return "bridge";
}

/// What is wrong with one address family on an interface; empty: nothing.
std::string troubleOf(const MulticastFacts& facts, const std::string& family,
                      const std::string& interface)
{
    if (!facts.isTried)
        return {};
    if (facts.sendError)
        return family + " multicast does not leave by " + interface + " ("
               + facts.sendError.message() + ")";
    if (facts.listenError)
        return "UDP 5353 cannot be listened to on " + interface + " with " + family + " ("
               + facts.listenError.message() + ")";
    if (!facts.isOwnHeard)
        return family + " multicast DNS leaves by "
               + interface + ", but nothing comes in at UDP 5353";
    return {};
}

std::string adviceFor(const MulticastFacts& facts, const FirewallFacts& firewall)
{
    if (facts.sendError == std::errc::operation_not_permitted)
        return "A firewall on this computer throws it away on its way out: look for the rule with "
               "'sudo nft list ruleset'.";
    if (facts.sendError)
        return "Turn the connection off and on again; 'ip route get 224.0.0.251' says more.";
    if (facts.listenError)
        return "Another program keeps the port to itself: 'sudo ss -ulnp sport = 5353' names it.";
    return howToLetMulticastDnsIn(firewall);
}

Finding multicastOn(const InterfaceFacts& interface, const FirewallFacts& firewall)
{
    const std::string trouble4 = troubleOf(interface.ipv4, "IPv4", interface.name);
    const std::string trouble6 = troubleOf(interface.ipv6, "IPv6", interface.name);
    if (trouble4.empty() && trouble6.empty()) {
        // With IPv6 a host has several addresses.
        const auto answered =
            isSound(interface.ipv4) ? interface.ipv4.hostsAnswered : interface.ipv6.hostsAnswered;
        return ok(kMulticast, "Multicast DNS leaves and arrives on " + interface.name + "; "
                                  + counted(answered, "other host") + " answered.");
    }
    const std::string& trouble = trouble4.empty() ? trouble6 : trouble4;
    const std::string advice =
        adviceFor(trouble4.empty() ? interface.ipv6 : interface.ipv4, firewall);
    if (isMulticastSound(interface))
        return warn(kMulticast, trouble + "; the other address family works.", advice);
    return fail(kMulticast, trouble + '.', advice);
}

/// Whether multicast is to be expected on it: a tunnel leads to no phone.
bool isJudged(const InterfaceFacts& interface)
{
    return isUsable(interface) && interface.kind != Kind::Vpn;
}

bool contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

/// Programs that listen for themselves and answer for nobody.
bool isHarmless(const PortHolder& holder)
{
    constexpr std::string_view kListeners[] = {"chrom", "firefox", "brave",   "edge",
                                               "opera", "vivaldi", "spotify", "GeckoMain"};
    return std::any_of(std::begin(kListeners), std::end(kListeners),
                       [&holder](std::string_view part) { return contains(holder.program, part); });
}

bool isExpected(const PortHolder& holder)
{
    // The system cuts names of programs off at 15 bytes.
    return holder.program == "avahi-daemon" || holder.program.starts_with("quillbox-helper")
           || (holder.program.empty() && holder.user == "avahi");
}

bool isSystemdResolved(const PortHolder& holder)
{
    return holder.program.starts_with("systemd-resolve")
           || (holder.program.empty() && holder.user == "systemd-resolve");
}

Finding responderFinding(const PortHolder& holder)
{
    if (isSystemdResolved(holder))
        return warn(kResponders, "systemd-resolved speaks multicast DNS beside avahi-daemon.",
                    "Put MulticastDNS=no into /etc/systemd/resolved.conf, then 'sudo systemctl "
                    "restart systemd-resolved'.");
    if (isHarmless(holder))
        return ok(kResponders,
                  holder.program + " listens to multicast DNS too, which does no harm.");
    const std::string who =
        holder.program.empty() ? "A program of the user " + holder.user : holder.program;
    return warn(kResponders, who + " has UDP 5353 open as well.",
                "Two responders can get in each other's way: if phones come and go, end one. 'sudo "
                "ss -ulnp sport = 5353' lists them.");
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

bool isUsable(const InterfaceFacts& interface)
{
    return interface.isRunning && !interface.addresses.empty();
}

bool isSound(const MulticastFacts& facts)
{
    return facts.isTried && !facts.listenError && !facts.sendError && facts.isOwnHeard;
}

bool isMulticastSound(const InterfaceFacts& interface)
{
    return isSound(interface.ipv4) || isSound(interface.ipv6);
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
            findings.push_back(warn(kInterfaces, each.name + " is connected and has no address.",
                                    "Wait for the router to give one, or connect again."));
        }
    }
    if (!isAnyUsable)
        findings.push_back(fail(kInterfaces, "No network interface is up with an address.",
                                "Connect this computer to the network that the phone is in."));
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
                                "Connect this computer to the network that the phone is in."));
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
        return {ok(kOtherHosts, "Other hosts are heard.")};
    if (!isSoundSomewhere)
        return {warn(kOtherHosts, "No other host can be heard.", "Mend multicast first.")};
    if (neighbours > 0)
        return {warn(kOtherHosts,
                     "Multicast works on this computer, and " + counted(neighbours, "other host")
                         + " on the network said nothing.",
                     "The network may keep its devices apart, as guest Wi-Fi does: put both into "
                     "one network and turn off 'client isolation' (or 'AP isolation') in the "
                     "access point.")};
    return {warn(kOtherHosts, "This computer is alone on its network, as far as it can see.",
                 "Look whether the phone is in the same network, and the router lets Wi-Fi and "
                 "cable reach each other.")};
}

Findings checkVpn(const SystemFacts& system)
{
    for (const InterfaceFacts& each : system.interfaces) {
        if (each.kind != Kind::Vpn || !each.isRunning || !each.hasDefaultRoute)
            continue;
        if (isPhoneReached(system.phones))
            return {
                ok(kVpn, "The VPN " + each.name + " takes all traffic but the local network's.")};
        return {warn(kVpn, "The VPN " + each.name + " takes all traffic.",
                     "Allow the local network in its settings, or disconnect it and look again.")};
    }
    return {ok(kVpn, "No VPN takes the traffic.")};
}

Findings checkEngine(const SystemFacts& system)
{
    const AvahiFacts& avahi = system.avahi;
    const char* restart = "'sudo systemctl restart avahi-daemon'; 'journalctl -u avahi-daemon' "
                          "says why.";
    if (system.phones.isEngineUp == Seen::No)
        return {fail(kEngine, "Neither avahi-daemon nor the built-in engine came up.", restart)};
    switch (avahi.state) {
    case AvahiFacts::State::Running:
        return {ok(kEngine, avahi.version + " runs, as " + avahi.hostName + '.')};
    case AvahiFacts::State::Registering:
        return {warn(kEngine, "avahi-daemon is still claiming the name of this computer.",
                     "Wait a few seconds; if it stays so, another host has the name.")};
    case AvahiFacts::State::Failed:
        return {fail(kEngine, "avahi-daemon has failed.", restart)};
    case AvahiFacts::State::Unknown:
        return {warn(kEngine, "avahi-daemon does not answer.", restart)};
    case AvahiFacts::State::NoBus:
    case AvahiFacts::State::Absent:
        break;
    }
    return {warn(kEngine,
                 "avahi-daemon does not run; the helper finds phones by itself, but file browsers "
                 "need it.",
                 "'sudo apt install avahi-daemon libnss-mdns', 'sudo systemctl enable --now "
                 "avahi-daemon'")};
}

Findings checkResponders(const SystemFacts& system)
{
    Findings findings;
    for (const PortHolder& each : system.responders) {
        if (!isExpected(each))
            findings.push_back(responderFinding(each));
    }
    if (findings.empty())
        findings.push_back(ok(kResponders, "Nothing else has UDP 5353 open."));
    return findings;
}

} // namespace quillbox::doctor
