#include "control/control_message.h"
#include "doctor/doctor.h"
#include "tests/fakes/fake_running_applications.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <chrono>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace quillbox {

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using Result = Finding::Result;

InterfaceFacts soundInterface()
{
    const MulticastFacts sound{
        .isTried = true, .isOwnHeard = true, .hostsHeard = 2, .hostsAnswered = 1};
    return {.name = "eth0",
            .isRunning = true,
            .hasMulticast = true,
            .hasDefaultRoute = true,
            .addresses = {"192.0.2.7", "fe80::7%eth0"},
            .neighbours = 3,
            .ipv4 = sound,
            .ipv6 = sound};
}

PhoneFacts soundPhone()
{
    return {.name = "Quillbox Office",
            .port = 4445,
            .hosts = 1,
            .addresses = {{.address = "192.0.2.9", .state = PortFacts::State::Open}}};
}

/// Of a computer that asks systemd-resolved, which has not answered yet.
NameFacts resolvedNames()
{
    return {.service = NameService("hosts: resolve [!UNAVAIL=return] dns"),
            .askedName = "office-pc-1.local"};
}

/// A computer on which all is as it should be.
DoctorFacts soundFacts()
{
    DoctorFacts facts;
    facts.system.interfaces = {soundInterface()};
    facts.system.avahi = {
        .state = AvahiFacts::State::Running, .version = "avahi 0.8", .hostName = "pc.local"};
    facts.system.firewall = {.ufw = Seen::No, .firewalld = Seen::No};
    facts.system.phones = {.isEngineUp = Seen::Yes, .phones = {soundPhone()}};
    facts.system.fileBrowser = {.hasGvfs = true};
    facts.system.names = {.service = NameService("hosts: mdns4_minimal [NOTFOUND=return] dns"),
                          .askedName = "pc.local",
                          .isResolved = Seen::Yes};
    facts.system.statusHost = {.hasDesktop = true, .hasPanel = Seen::Yes, .hasTray = Seen::No};
    facts.system.packageManager = PackageManager("ID=debian");
    facts.copy = {.state = RunningCopyFacts::State::Answered,
                  .status = HelperStatus{.isReady = true,
                                         .text = "1 Quillbox device visible in Finder",
                                         .isShownInFinder = true,
                                         .isAutomatic = true,
                                         .start = StartSettings()}};
    return facts;
}

void holdNowAndNext(DoctorFacts& facts, const StartSettings& settings)
{
    facts.copy.status->start = settings;
    facts.next = settings;
}

struct Case {
    std::string name;
    std::function<void(DoctorFacts&)> change;
    std::string check;
    Result result = Result::Ok;
    std::string text;   ///< a part of it
    std::string advice; ///< a part of it
};

void PrintTo(const Case& each, std::ostream* out)
{
    *out << each.name;
}

const MulticastFacts kDeaf{.isTried = true};

void changeMulticast(DoctorFacts& facts, const MulticastFacts& multicast)
{
    facts.system.interfaces.front().ipv4 = multicast;
    facts.system.interfaces.front().ipv6 = multicast;
}

MulticastFacts unsent(std::errc error)
{
    return {.isTried = true, .sendError = std::make_error_code(error)};
}

void changePort(DoctorFacts& facts, PortFacts::State state)
{
    facts.system.phones.phones.front().addresses.front().state = state;
}

InterfaceFacts vpn()
{
    return {.name = "tun0",
            .kind = InterfaceFacts::Kind::Vpn,
            .isRunning = true,
            .hasDefaultRoute = true,
            .addresses = {"10.8.0.2"}};
}

const std::vector<Case>& cases()
{
    static const std::vector<Case> all{
        {"noInterface", [](auto& f) { f.system.interfaces.clear(); }, "interfaces", Result::Fail,
         "No network interface", "Connect this computer"},
        {"noInterfaceForMulticast", [](auto& f) { f.system.interfaces.clear(); }, "multicast",
         Result::Fail, "no interface", "Connect this computer"},
        {"aVpnAloneIsNoNetwork", [](auto& f) { f.system.interfaces = {vpn()}; }, "interfaces",
         Result::Fail, "No network interface", "Connect this computer"},
        {"interfaceThatIsDown", [](auto& f) { f.system.interfaces.front().isRunning = false; },
         "interfaces", Result::Fail, "No network interface", "Connect this computer"},
        {"interfaceWithoutAddress",
         [](auto& f) { f.system.interfaces.push_back({.name = "wlan0", .isRunning = true}); },
         "interfaces", Result::Warn, "wlan0 is connected but has no address",
         "Wait for the router"},
        {"multicastTurnedOff", [](auto& f) { f.system.interfaces.front().hasMulticast = false; },
         "multicast", Result::Warn, "multicast turned off", "ip link set eth0 multicast on"},
        {"multicastKeptIn",
         [](auto& f) { changeMulticast(f, unsent(std::errc::operation_not_permitted)); },
         "multicast", Result::Fail, "cannot be sent on eth0", "drops outgoing"},
        {"multicastWithoutRoute",
         [](auto& f) { changeMulticast(f, unsent(std::errc::network_unreachable)); }, "multicast",
         Result::Fail, "cannot be sent on eth0", "ip route get"},
        {"multicastKeptOut", [](auto& f) { changeMulticast(f, kDeaf); }, "multicast", Result::Fail,
         "nothing arrives on UDP 5353", "Allow incoming UDP 5353"},
        {"multicastKeptOutByUfw",
         [](auto& f) {
             changeMulticast(f, kDeaf);
             f.system.firewall.ufw = Seen::Yes;
         },
         "multicast", Result::Fail, "nothing arrives", "'sudo ufw allow 5353/udp'"},
        {"multicastKeptOutByFirewalld",
         [](auto& f) {
             changeMulticast(f, kDeaf);
             f.system.firewall.firewalld = Seen::Yes;
         },
         "multicast", Result::Fail, "nothing arrives", "--add-service=mdns"},
        {"oneFamilyCannotBeSent",
         [](auto& f) {
             f.system.interfaces.front().ipv6 = unsent(std::errc::operation_not_permitted);
         },
         "multicast", Result::Warn, "IPv6 multicast cannot be sent on eth0", "drops outgoing"},
        {"bothFamiliesInTrouble",
         [](auto& f) {
             changeMulticast(f, kDeaf);
             f.system.interfaces.front().ipv4 = unsent(std::errc::operation_not_permitted);
         },
         "multicast", Result::Fail, "IPv4 multicast cannot be sent on eth0", "drops outgoing"},
        {"hostsCountedByIPv4", [](auto& f) { f.system.interfaces.front().ipv6.hostsAnswered = 5; },
         "multicast", Result::Ok, "works on eth0; 1 other host answered", ""},
        {"hostsCountedByIPv6Alone",
         [](auto& f) {
             f.system.interfaces.front().ipv4 = {};
             f.system.interfaces.front().ipv6.hostsAnswered = 5;
         },
         "multicast", Result::Ok, "works on eth0; 5 other hosts answered", ""},
        {"vpnWithoutMulticast", [](auto& f) { f.system.interfaces.push_back(vpn()); }, "multicast",
         Result::Ok, "works on eth0", ""},
        {"interfaceWithoutAddressIsNotTried",
         [](auto& f) { f.system.interfaces.push_back({.name = "wlan0", .isRunning = true}); },
         "multicast", Result::Ok, "works on eth0", ""},
        {"hostsBehindAVpnAreNoNeighbours",
         [](auto& f) {
             changeMulticast(f, {.isTried = true, .isOwnHeard = true});
             f.system.phones.phones.clear();
             f.system.interfaces.push_back(vpn());
             f.system.interfaces.back().ipv4.hostsHeard = 2;
             f.system.interfaces.back().neighbours = 4;
         },
         "other-hosts", Result::Warn, "3 other hosts on the network", "client isolation"},
        {"oneFamilyKeptOut", [](auto& f) { f.system.interfaces.front().ipv6 = kDeaf; }, "multicast",
         Result::Warn, "IPv6 multicast DNS is sent on eth0", "Allow incoming UDP 5353"},
        {"portKeptByAnother",
         [](auto& f) {
             changeMulticast(f, {.isTried = true,
                                 .listenError = std::make_error_code(std::errc::address_in_use)});
         },
         "multicast", Result::Fail, "Cannot listen on UDP 5353", "sudo ss -ulnp"},
        {"otherHostsThatAnswerAreHeard", [](auto& f) { f.system.phones.phones.clear(); },
         "other-hosts", Result::Ok, "Other hosts can be heard", ""},
        {"hostsHeardByIPv6Alone",
         [](auto& f) {
             f.system.phones.phones.clear();
             f.system.interfaces.front().ipv4.hostsHeard = 0;
         },
         "other-hosts", Result::Ok, "Other hosts can be heard", ""},
        {"aPhoneIsAnotherHostEvenIfNothingElseIsHeard", [](auto& f) { changeMulticast(f, kDeaf); },
         "other-hosts", Result::Ok, "Other hosts can be heard", ""},
        {"nobodyCanBeHeardWhereNobodyCanListen",
         [](auto& f) {
             changeMulticast(f, {.isTried = true,
                                 .listenError = std::make_error_code(std::errc::address_in_use),
                                 .isOwnHeard = true});
             f.system.phones.phones.clear();
         },
         "other-hosts", Result::Warn, "can be heard", "Fix multicast"},
        {"isolated",
         [](auto& f) {
             changeMulticast(f, {.isTried = true, .isOwnHeard = true});
             f.system.phones.phones.clear();
         },
         "other-hosts", Result::Warn, "3 other hosts on the network did not answer",
         "client isolation"},
        {"alone",
         [](auto& f) {
             changeMulticast(f, {.isTried = true, .isOwnHeard = true});
             f.system.interfaces.front().neighbours = 0;
             f.system.phones.phones.clear();
         },
         "other-hosts", Result::Warn, "alone on its network", "same network"},
        {"nobodyCanBeHeard",
         [](auto& f) {
             changeMulticast(f, kDeaf);
             f.system.phones.phones.clear();
         },
         "other-hosts", Result::Warn, "can be heard", "Fix multicast"},
        {"vpnInTheWay",
         [](auto& f) {
             f.system.interfaces.push_back(vpn());
             changePort(f, PortFacts::State::Silent);
         },
         "vpn", Result::Warn, "tun0 carries all traffic", "disconnect it"},
        {"vpnThatIsNot", [](auto& f) { f.system.interfaces.push_back(vpn()); }, "vpn", Result::Ok,
         "tun0 carries all but", ""},
        {"vpnThatIsOff",
         [](auto& f) {
             f.system.interfaces.push_back(vpn());
             f.system.interfaces.back().isRunning = false;
         },
         "vpn", Result::Ok, "No VPN carries all traffic", ""},
        {"vpnForOtherNetworksOnly",
         [](auto& f) {
             f.system.interfaces.push_back(vpn());
             f.system.interfaces.back().hasDefaultRoute = false;
         },
         "vpn", Result::Ok, "No VPN carries all traffic", ""},
        {"bridgeWithoutAddress",
         [](auto& f) {
             f.system.interfaces.push_back(
                 {.name = "br0", .kind = InterfaceFacts::Kind::Bridge, .isRunning = true});
         },
         "interfaces", Result::Ok, "eth0 (wired) is up", ""},
        {"ufwBesideAnInterfaceThatIsNotUsed",
         [](auto& f) {
             f.system.interfaces.push_back({.name = "wlan0", .ipv4 = kDeaf});
             f.system.firewall.ufw = Seen::Yes;
         },
         "firewall", Result::Ok, "ufw is on and allows multicast DNS", ""},
        {"ufwWhereOneFamilyCannotListen",
         [](auto& f) {
             f.system.interfaces.front().ipv6 = {
                 .isTried = true, .listenError = std::make_error_code(std::errc::address_in_use)};
             f.system.firewall.ufw = Seen::Yes;
         },
         "firewall", Result::Ok, "ufw is on and allows multicast DNS", ""},
        {"ufwWhereOneFamilyCannotSend",
         [](auto& f) {
             f.system.interfaces.front().ipv6 = unsent(std::errc::network_unreachable);
             f.system.firewall.ufw = Seen::Yes;
         },
         "firewall", Result::Ok, "ufw is on and allows multicast DNS", ""},
        {"ufwLetsIn", [](auto& f) { f.system.firewall.ufw = Seen::Yes; }, "firewall", Result::Ok,
         "only if its port is allowed as well (TCP 61000 to 64999): 'sudo ufw allow "
         "61000:64999/tcp'.",
         ""},
        {"ufwKeepsOut",
         [](auto& f) {
             changeMulticast(f, kDeaf);
             f.system.firewall.ufw = Seen::Yes;
         },
         "firewall", Result::Fail, "ufw is on and blocks", "'sudo ufw allow 5353/udp'"},
        {"ufwUntried",
         [](auto& f) {
             f.system.interfaces.clear();
             f.system.firewall.ufw = Seen::Yes;
         },
         "firewall", Result::Warn, "could not test", "'sudo ufw allow 5353/udp'"},
        {"ufwInPart",
         [](auto& f) {
             f.system.interfaces.front().ipv6 = kDeaf;
             f.system.firewall.ufw = Seen::Yes;
         },
         "firewall", Result::Warn, "blocks some", "'sudo ufw allow 5353/udp'"},
        {"ufwUnknown", [](auto& f) { f.system.firewall.ufw = Seen::Unknown; }, "firewall",
         Result::Warn, "whether ufw is on", "'sudo ufw status'"},
        {"firewalldLetsIn", [](auto& f) { f.system.firewall.firewalld = Seen::Yes; }, "firewall",
         Result::Ok,
         "(TCP 61000 to 64999): 'sudo firewall-cmd --permanent --add-port=61000-64999/tcp', 'sudo "
         "firewall-cmd --reload'.",
         ""},
        {"firewalldKeepsOut",
         [](auto& f) {
             changeMulticast(f, kDeaf);
             f.system.firewall.firewalld = Seen::Yes;
         },
         "firewall", Result::Fail, "firewalld is on and blocks", "--add-service=mdns"},
        {"firewalldUnknown", [](auto& f) { f.system.firewall.firewalld = Seen::Unknown; },
         "firewall", Result::Warn, "whether firewalld is running", "'sudo firewall-cmd --state'"},
        {"noFirewall", [](auto&) {}, "firewall", Result::Ok, "No firewall on this computer blocks",
         ""},
        {"noFirewallUntried", [](auto& f) { f.system.interfaces.clear(); }, "firewall", Result::Ok,
         "Neither ufw nor firewalld is on", ""},
        {"aPacketFilterThatKeepsOut", [](auto& f) { changeMulticast(f, kDeaf); }, "firewall",
         Result::Fail, "A packet filter is on and blocks multicast DNS", "'sudo nft list ruleset'"},
        {"aPacketFilterThatKeepsOneFamilyOut",
         [](auto& f) { f.system.interfaces.front().ipv6 = kDeaf; }, "firewall", Result::Warn,
         "A packet filter is on and blocks some", "'sudo nft list ruleset'"},
        {"noAvahi", [](auto& f) { f.system.avahi = {.state = AvahiFacts::State::Absent}; },
         "dns-sd", Result::Warn, "avahi-daemon is not running", "apt install avahi-daemon"},
        {"noBus", [](auto& f) { f.system.avahi = {.state = AvahiFacts::State::NoBus}; }, "dns-sd",
         Result::Warn, "avahi-daemon is not running", "apt install avahi-daemon"},
        {"avahiStuck", [](auto& f) { f.system.avahi = {}; }, "dns-sd", Result::Warn,
         "does not answer", "systemctl restart avahi-daemon"},
        {"engineUnknown", [](auto& f) { f.system.phones.isEngineUp = Seen::Unknown; }, "dns-sd",
         Result::Ok, "avahi 0.8 is running as pc.local", ""},
        {"avahiClaiming", [](auto& f) { f.system.avahi.state = AvahiFacts::State::Registering; },
         "dns-sd", Result::Warn, "still registering", "another host has the same name"},
        {"avahiFailed", [](auto& f) { f.system.avahi.state = AvahiFacts::State::Failed; }, "dns-sd",
         Result::Fail, "has failed", "systemctl restart avahi-daemon"},
        {"noEngine", [](auto& f) { f.system.phones.isEngineUp = Seen::No; }, "dns-sd", Result::Fail,
         "Neither", "systemctl restart avahi-daemon"},
        {"noPhone", [](auto& f) { f.system.phones.phones.clear(); }, "phones", Result::Fail,
         "No phone was found", "turn sharing on"},
        {"noPhoneWanted",
         [](auto& f) {
             f.system.phones.phones.clear();
             f.copy.status->isAutomatic = false;
         },
         "phones", Result::Warn, "a manually entered address", "automatic discovery"},
        {"phoneThatRefuses", [](auto& f) { changePort(f, PortFacts::State::Refused); }, "phones",
         Result::Fail, "\"Quillbox Office\" at 192.0.2.9, port 4445, refuses", "sharing"},
        {"phoneBehindAFilter", [](auto& f) { changePort(f, PortFacts::State::Silent); }, "phones",
         Result::Fail, "does not answer", "drops the connection"},
        {"phoneThatRefusesAtOneAddressAndIsSilentAtAnother",
         [](auto& f) {
             changePort(f, PortFacts::State::Silent);
             f.system.phones.phones.front().addresses.push_back(
                 {.address = "fe80::9", .state = PortFacts::State::Refused});
         },
         "phones", Result::Fail, "refuses connections", "sharing"},
        {"phoneOutOfReach", [](auto& f) { changePort(f, PortFacts::State::Unreachable); }, "phones",
         Result::Fail, "cannot be reached", "no route"},
        {"phoneAtAForbiddenAddress", [](auto& f) { changePort(f, PortFacts::State::NotDialled); },
         "phones", Result::Fail, "cannot be reached", "no route"},
        {"phoneWithOneGoodAddress",
         [](auto& f) {
             f.system.phones.phones.front().addresses.push_back(
                 {.address = "fe80::9", .state = PortFacts::State::Unreachable});
         },
         "phones", Result::Ok, "at 192.0.2.9 and fe80::9, port 4445, accepts connections", ""},
        {"phoneWithoutAddress", [](auto& f) { f.system.phones.phones.front().addresses.clear(); },
         "phones", Result::Fail, "cannot be resolved", "run the doctor again"},
        {"phoneOfAnotherName", [](auto& f) { f.system.phones.phones.front().name = "My Quillbox"; },
         "phones", Result::Fail, "\"My Quillbox\" is not shown: its name does not begin",
         "rename it"},
        {"phoneOfAnotherNameBesideOne",
         [](auto& f) { f.system.phones.phones.push_back({.name = "My Quillbox"}); }, "phones",
         Result::Warn, "its name does not begin", "rename it"},
        {"twoPhonesOfOneName", [](auto& f) { f.system.phones.phones.front().hosts = 2; }, "phones",
         Result::Warn, "Several phones are called \"Quillbox Office\"", "unique name"},
        {"notRunning", [](auto& f) { f.copy = {}; }, "running-copy", Result::Warn, "is not running",
         "--autostart=on"},
        {"stuck", [](auto& f) { f.copy = {.state = RunningCopyFacts::State::Silent}; },
         "running-copy", Result::Fail, "does not answer", "start it again"},
        {"otherVersion", [](auto& f) { f.copy = {.state = RunningCopyFacts::State::OtherVersion}; },
         "running-copy", Result::Warn, "different version", "Quit it"},
        {"turnedOff", [](auto& f) { f.copy.status->isShownInFinder = false; }, "running-copy",
         Result::Warn, "turned off", "'quillbox-helper restart'"},
        {"notReady",
         [](auto& f) {
             f.copy.status->isReady = false;
             f.copy.status->text = "Looking for Quillbox on this network…";
         },
         "running-copy", Result::Warn, "its status is: Looking for Quillbox",
         "quillbox-helper restart"},
        {"openToTheNetwork", [](auto&) {}, "settings", Result::Ok,
         "Other computers see and reach the phones", ""},
        {"thisComputerOnly", [](auto& f) { holdNowAndNext(f, {.reach = Reach::ThisComputer}); },
         "settings", Result::Ok, "No other computer sees or reaches the phones", ""},
        {"thisComputerOnlyAtTheNextStart", [](auto& f) { f.next.reach = Reach::ThisComputer; },
         "settings", Result::Warn,
         "does not have the stored settings: this computer only on, DNS-SD auto",
         "'quillbox-helper quit'"},
        {"embeddedAtTheNextStart", [](auto& f) { f.next.dnsSd = DnsSdChoice::Embedded; },
         "settings", Result::Warn,
         "does not have the stored settings: this computer only off, DNS-SD embedded",
         "'quillbox-helper quit'"},
        {"unusableSettings", [](auto& f) { f.settingsProblem = "/s.json: Permission denied"; },
         "settings", Result::Warn, "cannot be used: /s.json: Permission denied.",
         "Fix or remove the file"},
        {"anyEngine", [](auto&) {}, "settings", Result::Ok, "uses avahi-daemon if it is running",
         ""},
        {"embeddedOnly", [](auto& f) { holdNowAndNext(f, {.dnsSd = DnsSdChoice::Embedded}); },
         "settings", Result::Ok,
         "uses only its embedded engine; a start with 'quillbox-helper --dns-sd=auto'", ""},
        {"daemonOnly", [](auto& f) { holdNowAndNext(f, {.dnsSd = DnsSdChoice::Daemon}); },
         "settings", Result::Ok, "uses only avahi-daemon; a start with", ""},
        {"daemonOnlyWithoutDaemon",
         [](auto& f) {
             holdNowAndNext(f, {.dnsSd = DnsSdChoice::Daemon});
             f.system.avahi = {.state = AvahiFacts::State::Absent};
         },
         "settings", Result::Fail, "uses only avahi-daemon, which is not running; a start with",
         "apt install avahi-daemon"},
        {"unknownSettings", [](auto& f) { f.copy.status->start = std::nullopt; }, "settings",
         Result::Warn, "does not tell its settings", "start it again"},
        {"noFileBrowser", [](auto& f) { f.system.fileBrowser = {}; }, "file-browser", Result::Fail,
         "can open SMB shares", "gvfs-backends"},
        {"noFileBrowserWithoutDesktop",
         [](auto& f) {
             f.system.fileBrowser = {};
             f.system.statusHost = {};
         },
         "file-browser", Result::Warn, "can open SMB shares", "kio-extras"},
        {"kio", [](auto& f) { f.system.fileBrowser = {.hasKio = true}; }, "file-browser",
         Result::Ok, "KIO can open", ""},
        {"gvfsAndKio", [](auto& f) { f.system.fileBrowser = {.hasGvfs = true, .hasKio = true}; },
         "file-browser", Result::Ok, "GVfs and KIO can open", ""},
        {"noNames", [](auto& f) { f.system.names = {.service = NameService("")}; }, "host-names",
         Result::Fail, "are not resolved", "mdns4_minimal [NOTFOUND=return]"},
        {"noNamesWithoutDesktop",
         [](auto& f) {
             f.system.names = {.service = NameService("")};
             f.system.statusHost = {};
         },
         "host-names", Result::Warn, "are not resolved", "libnss-mdns"},
        {"namesNotFound", [](auto& f) { f.system.names.isResolved = Seen::No; }, "host-names",
         Result::Fail, "cannot be resolved", "apt install avahi-daemon libnss-mdns"},
        {"namesNotFoundInTime", [](auto& f) { f.system.names.isResolved = Seen::Unknown; },
         "host-names", Result::Warn,
         "pc.local is not resolved within seconds, because no DNS server answers",
         "/etc/resolv.conf"},
        {"namesUnknown", [](auto& f) { f.system.names = {}; }, "host-names", Result::Warn,
         "Could not determine", "Outside the sandbox"},
        {"namesNotTried",
         [](auto& f) {
             f.system.names.isResolved = Seen::Unknown;
             f.system.names.askedName.clear();
         },
         "host-names", Result::Ok, "are configured to use", ""},
        {"namesFoundByResolved",
         [](auto& f) {
             f.system.names = resolvedNames();
             f.system.names.isResolved = Seen::Yes;
         },
         "host-names", Result::Ok, "office-pc-1.local is resolved by multicast DNS", ""},
        {"namesNotFoundByResolved",
         [](auto& f) {
             f.system.names = resolvedNames();
             f.system.names.isResolved = Seen::No;
         },
         "host-names", Result::Fail, "systemd-resolved, which is asked for names",
         "before 'resolve'"},
        {"namesNotFoundByResolvedInTime", [](auto& f) { f.system.names = resolvedNames(); },
         "host-names", Result::Fail, "does not resolve those that this computer gives the phones",
         "before 'resolve'"},
        {"namesNotFoundByResolvedWithoutDesktop",
         [](auto& f) {
             f.system.names = resolvedNames();
             f.system.statusHost = {};
         },
         "host-names", Result::Warn, "does not resolve those", "libnss-mdns"},
        {"resolvedNotRunning",
         [](auto& f) {
             f.system.names = resolvedNames();
             f.system.names.askedName.clear();
             f.system.names.isResolved = Seen::No;
         },
         "host-names", Result::Fail, "does not resolve those", "libnss-mdns"},
        {"resolvedNotTried",
         [](auto& f) {
             f.system.names = resolvedNames();
             f.system.names.askedName.clear();
         },
         "host-names", Result::Warn, "shows no phone to try it with",
         "while the helper shows a phone"},
        {"noStatusHost", [](auto& f) { f.system.statusHost.hasPanel = Seen::No; }, "status-icon",
         Result::Warn, "shows no status icons", "appindicator"},
        {"tray",
         [](auto& f) {
             f.system.statusHost = {true, Seen::No, Seen::Yes};
         },
         "status-icon", Result::Ok, "shows status icons", ""},
        {"statusHostUnknown",
         [](auto& f) {
             f.system.statusHost = {true, Seen::Unknown, Seen::Unknown};
         },
         "status-icon", Result::Warn, "Could not determine", "quillbox-helper"},
        {"noDesktop", [](auto& f) { f.system.statusHost = {}; }, "status-icon", Result::Ok,
         "no desktop", ""},
    };
    return all;
}

class Diagnosis : public ::testing::TestWithParam<Case> {};

TEST_P(Diagnosis, saysWhatIsWrongAndWhatToDo)
{
    const Case& wanted = GetParam();
    auto facts = soundFacts();
    wanted.change(facts);
    const auto findings = diagnose(facts);
    const auto found =
        std::find_if(findings.begin(), findings.end(), [&wanted](const Finding& each) {
            return each.check == wanted.check && each.result == wanted.result
                   && each.text.find(wanted.text) != std::string::npos;
        });
    ASSERT_NE(found, findings.end()) << plainText(findings);
    EXPECT_THAT(found->advice, HasSubstr(wanted.advice));
    EXPECT_EQ(found->advice.empty(), wanted.result == Result::Ok);
    // The worst that is said of a check is what the case is about.
    for (const Finding& each : findings) {
        EXPECT_TRUE(each.check != wanted.check || each.result <= wanted.result) << each.text;
    }
}

INSTANTIATE_TEST_SUITE_P(Doctor, Diagnosis, ::testing::ValuesIn(cases()),
                         [](const auto& each) { return each.param.name; });

TEST(Doctor, findsNothingWhereAllIsWell)
{
    const auto findings = diagnose(soundFacts());
    for (const Finding& each : findings) {
        EXPECT_EQ(each.result, Result::Ok) << each.check << ": " << each.text;
        EXPECT_EQ(each.advice, "");
    }
    EXPECT_FALSE(hasFailure(findings));
}

TEST(Doctor, reportsAFirewallProgramUnderItsNameOnly)
{
    for (const auto program : {&FirewallFacts::ufw, &FirewallFacts::firewalld}) {
        auto facts = soundFacts();
        facts.system.firewall.*program = Seen::Yes;
        const auto findings = diagnose(facts);
        EXPECT_EQ(std::count_if(findings.begin(), findings.end(),
                                [](const Finding& each) { return each.check == "firewall"; }),
                  1)
            << plainText(findings);
    }
}

TEST(Doctor, namesPackagesAsThisSystemDoes)
{
    auto facts = soundFacts();
    facts.system.avahi = {.state = AvahiFacts::State::Absent};
    facts.system.fileBrowser = {};
    facts.system.names = {.service = NameService("")};
    facts.system.statusHost = {.hasDesktop = true, .hasPanel = Seen::No, .hasTray = Seen::No};
    EXPECT_THAT(plainText(diagnose(facts)), HasSubstr("apt install"));

    facts.system.packageManager = PackageManager("ID=fedora");
    const std::string text = plainText(diagnose(facts));
    EXPECT_THAT(text, Not(HasSubstr("apt install")));
    for (const char* each : {"'sudo dnf install avahi nss-mdns'", "'sudo dnf install gvfs-smb'",
                             "'sudo dnf install kio-extras'", "'sudo dnf install nss-mdns'",
                             "'sudo dnf install gnome-shell-extension-appindicator'"})
        EXPECT_THAT(text, HasSubstr(each));
}

TEST(Doctor, tellsOfEachCheckWhateverIsKnown)
{
    for (const auto& facts : {soundFacts(), DoctorFacts()}) {
        std::set<std::string> checks;
        for (const Finding& each : diagnose(facts))
            checks.insert(each.check);
        EXPECT_EQ(checks,
                  (std::set<std::string>{"interfaces", "multicast", "other-hosts", "vpn",
                                         "firewall", "dns-sd", "phones", "running-copy", "settings",
                                         "file-browser", "host-names", "status-icon"}));
    }
}

TEST(Doctor, takesTheSettingsOfTheRunningCopyAndElseTheStoredOnes)
{
    DoctorFacts facts = soundFacts();
    facts.next = {.reach = Reach::ThisComputer, .dnsSd = DnsSdChoice::Embedded};
    const auto told = [&facts] {
        std::string text;
        for (const Finding& each : diagnose(facts))
            text += each.check == "settings" ? each.text + '\n' : "";
        return text;
    };
    EXPECT_THAT(told(), AllOf(HasSubstr("Other computers see"), HasSubstr("uses avahi-daemon")));
    facts.copy = {};
    EXPECT_THAT(told(), AllOf(HasSubstr("No other computer"), HasSubstr("only its embedded"),
                              Not(HasSubstr("stored settings"))));
    facts.copy.state = RunningCopyFacts::State::Silent;
    EXPECT_EQ(told(), "The running helper does not tell its settings.\n");
}

TEST(Doctor, ordersTheChecksFromTheNetworkToTheDesktop)
{
    std::vector<std::string> checks;
    for (const Finding& each : diagnose(soundFacts())) {
        if (checks.empty() || checks.back() != each.check)
            checks.push_back(each.check);
    }
    EXPECT_THAT(checks,
                ::testing::ElementsAre("interfaces", "multicast", "other-hosts", "vpn", "firewall",
                                       "dns-sd", "phones", "running-copy", "settings",
                                       "file-browser", "host-names", "status-icon"));
}

TEST(Doctor, saysNothingOfOtherFirewallsWhereOneIsOn)
{
    auto facts = soundFacts();
    changeMulticast(facts, kDeaf);
    facts.system.firewall.firewalld = Seen::Yes;
    EXPECT_THAT(plainText(diagnose(facts)), Not(HasSubstr("packet filter")));
}

TEST(Doctor, isSureOfNoStatusIconsOnlyIfOneKindOfHostIsKnownToBeMissing)
{
    auto facts = soundFacts();
    facts.system.statusHost = {.hasDesktop = true, .hasPanel = Seen::Unknown, .hasTray = Seen::No};
    EXPECT_THAT(plainText(diagnose(facts)), HasSubstr("The desktop shows no status icons."));
    facts.system.statusHost.hasTray = Seen::Unknown;
    EXPECT_THAT(plainText(diagnose(facts)), HasSubstr("Could not determine whether the desktop"));
}

TEST(Doctor, showsNoControlCharactersOfAdvice)
{
    EXPECT_THAT(plainText(std::vector<Finding>{{"a", Result::Warn, "", "Run \x1b[2J"}}),
                Not(HasSubstr("\x1b")));
}

TEST(Doctor, aWarningAloneIsNoFailure)
{
    EXPECT_FALSE(hasFailure({{"a", Result::Ok, "", ""}, {"b", Result::Warn, "", ""}}));
    EXPECT_TRUE(hasFailure({{"a", Result::Fail, "", ""}, {"b", Result::Ok, "", ""}}));
}

TEST(Doctor, whatTheNetworkChoseIsPlainOnATerminalAndVerbatimInJson)
{
    const std::string hostile = "Quillbox \x1b[2J\n\u202e\u009b";
    auto facts = soundFacts();
    facts.system.phones.phones.front().name = hostile;
    facts.copy.status->text = hostile;
    const auto findings = diagnose(facts);
    const std::string plain = plainText(findings);
    const std::string json = jsonText(findings);
    for (const char* bad : {"\x1b", "\u202e", "\u009b", "[2J\n"}) {
        EXPECT_THAT(plain, Not(HasSubstr(bad)));
        EXPECT_THAT(json, Not(HasSubstr(bad)));
    }
    const auto read = QJsonDocument::fromJson(QByteArray::fromStdString(json)).array();
    ASSERT_EQ(static_cast<std::size_t>(read.size()), findings.size());
    for (qsizetype i = 0; i < read.size(); ++i) {
        const QJsonObject entry = read[i].toObject();
        const Finding& finding = findings[static_cast<std::size_t>(i)];
        EXPECT_EQ(entry.keys().join(u',').toStdString(), "advice,check,result,text");
        EXPECT_EQ(entry[u"text"].toString().toStdString(), finding.text);
        EXPECT_EQ(entry[u"check"].toString().toStdString(), finding.check);
        EXPECT_EQ(entry[u"advice"].toString().toStdString(), finding.advice);
        EXPECT_EQ(entry[u"result"].toString().toStdString(),
                  finding.result == Result::Ok ? "OK" : "WARN");
    }
}

TEST(Doctor, aLineStandsForEachFindingAndOneForItsAdvice)
{
    EXPECT_EQ(plainText(std::vector<Finding>{{"vpn", Result::Ok, "Fine.", ""},
                                             {"phones", Result::Fail, "None.", "Look."},
                                             {"names", Result::Warn, "Some.", "Wait."}}),
              "OK    vpn: Fine.\nFAIL  phones: None.\n      Look.\nWARN  names: Some.\n      "
              "Wait.\n");
}

TEST(Doctor, namesTheKindsOfInterfaces)
{
    using Kind = InterfaceFacts::Kind;
    DoctorFacts facts;
    for (const Kind kind : {Kind::Wired, Kind::Wireless, Kind::Vpn, Kind::Bridge})
        facts.system.interfaces.push_back(
            {.name = "x", .kind = kind, .isRunning = true, .addresses = {"192.0.2.1"}});
    std::vector<std::string> kinds;
    for (const Finding& finding : diagnose(facts)) {
        if (finding.check == "interfaces")
            kinds.push_back(finding.text.substr(0, finding.text.find(')') + 1));
    }
    EXPECT_THAT(kinds,
                ::testing::ElementsAre("x (wired)", "x (wireless)", "x (VPN)", "x (bridge)"));
}

TEST(Doctor, asksTheRunningCopy)
{
    using State = RunningCopyFacts::State;
    const std::chrono::milliseconds limit{1234};
    EXPECT_EQ(askRunningCopy(nullptr, limit).state, State::NotRunning);
    FakeRunningApplication copy{Launch{}};
    EXPECT_EQ(askRunningCopy(&copy, limit).state, State::Silent);
    EXPECT_THAT(copy.limits, ::testing::ElementsAre(limit));
    copy.answers = [](const std::string&) { return "nonsense"; };
    EXPECT_EQ(askRunningCopy(&copy, limit).state, State::OtherVersion);
    copy.answers = [](const std::string&) { return encoded(ControlAnswer{}); };
    EXPECT_EQ(askRunningCopy(&copy, limit).state, State::OtherVersion);
    const HelperStatus status{.isReady = true, .text = "fine"};
    copy.answers = [&status](const std::string&) {
        return encoded(ControlAnswer{.status = status});
    };
    const auto facts = askRunningCopy(&copy, limit);
    EXPECT_EQ(facts.state, State::Answered);
    EXPECT_EQ(facts.status, status);
    EXPECT_EQ(copy.asked.back(), encoded(ControlRequest{}));
}

TEST(Doctor, knowsTheFirstHostThatTheRunningCopyTells)
{
    RunningCopyFacts copy;
    EXPECT_EQ(relayHostIn(copy), "");
    copy.status.emplace();
    EXPECT_EQ(relayHostIn(copy), "");
    copy.status->relays = {{.name = "Attic"},
                           {.name = "Kitchen", .host = "kitchen-pc-1.local"},
                           {.name = "Office", .host = "office-pc-1.local"}};
    EXPECT_EQ(relayHostIn(copy), "kitchen-pc-1.local");
}

} // namespace

} // namespace quillbox
