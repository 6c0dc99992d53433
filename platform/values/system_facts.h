#pragma once

#include "platform/values/name_service.h"
#include "platform/values/package_manager.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>
#include <vector>

namespace quillbox {

/// Facts about this computer and its network, gathered to diagnose why a phone is not visible.
/// Plain values without an assessment; a value that could not be determined is marked as unknown,
/// never guessed. Strings come unchecked from other programs or from hosts on the network.

enum class Seen { Yes, No, Unknown };

/// The result of multicast DNS queries over one address family on one interface.
struct MulticastFacts {
    bool isTried = false;             ///< the interface has an address of that family
    std::error_code listenError = {}; ///< of opening UDP port 5353
    std::error_code sendError = {};   ///< of sending the query
    bool isOwnHeard = false;          ///< our own query was received on UDP port 5353
    std::size_t hostsHeard = 0;       ///< other hosts that sent anything meanwhile
    std::size_t hostsAnswered = 0;    ///< those of them that answered the query
};

struct InterfaceFacts {
    enum class Kind { Wired, Wireless, Vpn, Bridge };

    int index = 0; ///< the kernel's
    std::string name = {};
    Kind kind = Kind::Wired;
    bool isRunning = false; ///< up, and with a carrier
    bool hasMulticast = false;
    bool hasDefaultRoute = false;
    std::vector<std::string> addresses = {}; ///< numeric
    std::size_t neighbours = 0;              ///< hosts in the kernel's neighbour tables
    MulticastFacts ipv4 = {};
    MulticastFacts ipv6 = {};
};

struct AvahiFacts {
    enum class State {
        Unknown, ///< the bus or the daemon did not answer in time
        NoBus,
        Absent,
        Registering, ///< still registering its host name, or changing it after a conflict
        Running,
        Failed,
    };

    State state = State::Unknown;
    std::string version = {};
    std::string hostName = {}; ///< with its domain
};

/// The programs that set up packet filters. What the rules let in is seen from `MulticastFacts`.
struct FirewallFacts {
    Seen ufw = Seen::Unknown;       ///< No: not installed or not enabled
    Seen firewalld = Seen::Unknown; ///< No: not running
};

struct PortFacts {
    enum class State { Open, Refused, Silent, Unreachable, NotDialled };

    std::string address = {}; ///< numeric
    State state = State::Silent;
};

struct PhoneFacts {
    std::string name = {};
    std::uint16_t port = 0;
    std::size_t hosts = 0; ///< in its SRV records; more than one: several phones share the name
    std::vector<PortFacts> addresses = {}; ///< empty: announced, but could not be resolved
};

/// The phones that DNS-SD found within the time limit.
struct PhonesFacts {
    Seen isEngineUp = Seen::Unknown;
    std::vector<PhoneFacts> phones = {}; ///< services of the phones' type with any name
};

/// Components that file browsers need to open SMB shares.
struct FileBrowserFacts {
    bool hasGvfs = false;
    bool hasKio = false;
};

/// How the name service resolves names that end in ".local".
struct NameFacts {
    NameService service = {};
    std::string askedName = {};      ///< the name looked up as a test; empty: none
    Seen isResolved = Seen::Unknown; ///< Unknown also if there was no answer in time
};

struct StatusHostFacts {
    bool hasDesktop = false;       ///< the session has a display
    Seen hasPanel = Seen::Unknown; ///< that shows StatusNotifierItems
    Seen hasTray = Seen::Unknown;  ///< on the X display
};

struct SystemFacts {
    std::vector<InterfaceFacts> interfaces = {}; ///< without the loopback interface
    AvahiFacts avahi = {};
    FirewallFacts firewall = {};
    PhonesFacts phones = {};
    FileBrowserFacts fileBrowser = {};
    NameFacts names = {};
    StatusHostFacts statusHost = {};
    PackageManager packageManager = {};
};

} // namespace quillbox
