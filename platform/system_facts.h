#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>
#include <vector>

namespace quillbox {

/// What was found out about this computer and its network when somebody asks why a phone is not
/// seen. Plain values without a judgement; a value that nobody could find out says so, and is never
/// a guess. Texts are UTF-8 that programs or hosts on the network chose: not checked.

enum class Seen { Yes, No, Unknown };

/// What became of multicast DNS questions of one address family on one interface.
struct MulticastFacts {
    bool isTried = false;             ///< there is an address of that family
    std::error_code listenError = {}; ///< UDP 5353 could not be listened to
    std::error_code sendError = {};   ///< the question did not leave this computer
    bool isOwnHeard = false;          ///< the question came back in at UDP 5353
    std::size_t hostsHeard = 0;       ///< other hosts that said anything meanwhile
    std::size_t hostsAnswered = 0;    ///< of them, those that answered
};

struct InterfaceFacts {
    enum class Kind { Wired, Wireless, Vpn, Bridge };

    std::string name = {};
    Kind kind = Kind::Wired;
    bool isRunning = false; ///< up, and with a carrier
    bool hasMulticast = false;
    bool hasDefaultRoute = false;
    std::vector<std::string> addresses = {}; ///< in numbers
    std::size_t neighbours = 0;              ///< hosts that the kernel knows to be on the same wire
    MulticastFacts ipv4 = {};
    MulticastFacts ipv6 = {};
};

/// Who has UDP 5353 open.
struct PortHolder {
    std::string program; ///< empty where the system does not tell
    std::string user;    ///< its name, or its number

    bool operator==(const PortHolder&) const = default;
    auto operator<=>(const PortHolder&) const = default;
};

struct AvahiFacts {
    enum class State {
        Unknown, ///< the bus or the daemon did not answer in time
        NoBus,
        Absent,
        Registering, ///< it is still claiming its host name, or changing it
        Running,
        Failed,
    };

    State state = State::Unknown;
    std::string version = {};
    std::string hostName = {}; ///< with its domain
};

struct FirewallFacts {
    enum class Rules {
        Unknown,    ///< the program that shows them failed or did not answer in time
        NoProgram,  ///< nothing that could show rules or set them is installed
        NotAllowed, ///< this user may not see them
        Read,
    };

    Seen ufw = Seen::Unknown;       ///< No: not installed or not enabled
    Seen firewalld = Seen::Unknown; ///< No: not running
    Rules rules = Rules::Unknown;
    // Of the rules that were read:
    bool dropsInput = false;        ///< some packets to this computer are thrown away
    bool dropsOutput = false;       ///< some packets from it are
    bool dropsMulticastDns = false; ///< a rule names UDP 5353 to throw it away
};

struct PortFacts {
    enum class State { Open, Refused, Silent, Unreachable, NotDialled };

    std::string address = {}; ///< in numbers
    State state = State::Silent;
};

struct PhoneFacts {
    std::string name = {};
    std::uint16_t port = 0;
    std::size_t hosts = 0; ///< that its records name: more than one are several phones of one name
    std::vector<PortFacts> addresses = {}; ///< none: it was announced and could not be resolved
};

/// The phones that DNS-SD showed within the time given to it.
struct PhonesFacts {
    Seen isEngineUp = Seen::Unknown;
    std::vector<PhoneFacts> phones = {}; ///< services of the phones' type, however named
};

/// What file browsers need in order to open SMB shares.
struct FileBrowserFacts {
    bool hasGvfs = false;
    bool hasKio = false;
};

/// How programs look up names that end in ".local".
struct NameFacts {
    std::string hostsLine = {};    ///< of /etc/nsswitch.conf; empty: there is none
    bool asksMulticastDns = false; ///< the line names a module for that
    std::string askedName = {};    ///< the one that was looked up; empty: none was
    Seen isResolved = Seen::Unknown;
};

struct StatusHostFacts {
    bool hasDesktop = false;       ///< the session names a display
    Seen hasPanel = Seen::Unknown; ///< for status notifier items
    Seen hasTray = Seen::Unknown;  ///< of the X display
};

struct SystemFacts {
    std::vector<InterfaceFacts> interfaces = {}; ///< without the loopback interface
    std::vector<PortHolder> responders = {};
    AvahiFacts avahi = {};
    FirewallFacts firewall = {};
    PhonesFacts phones = {};
    FileBrowserFacts fileBrowser = {};
    NameFacts names = {};
    StatusHostFacts statusHost = {};
};

} // namespace quillbox
