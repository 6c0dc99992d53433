#pragma once

#include "platform/dnssd/dns_sd_error.h"
#include "platform/values/endpoint.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

/// The requests to a DNS-SD engine and its events: plain values, which are sent to another process
/// and back. Events are checked for their form only: names and addresses are as some host on the
/// network sent them.
namespace quillbox::dnssd {

/// Identifies a request for as long as it is active. Chosen by the caller, never reused.
using RequestId = std::uint32_t;

/// Counts how often an engine process has come up, from 1: identifies what lies between an EngineUp
/// and the next EngineDown. The messages between the two processes carry it, so that a request that
/// crosses an EngineDown and the next EngineUp is recognised: it would otherwise be active twice,
/// because all requests are sent again.
using Generation = std::uint32_t;

/// In place of an interface index.
inline constexpr std::int32_t kEveryInterface = -1;

enum class Family : std::uint8_t { IPv4, IPv6 };

/// An address without port or scope: 4 or 16 bytes in network byte order, depending on the family.
struct Address {
    Family family = Family::IPv4;
    std::array<std::uint8_t, 16> bytes{};

    /// fe80::/10, which is valid only on one link (RFC 4291, section 2.5.6).
    bool isLinkLocalIPv6() const
    {
        return family == Family::IPv6 && bytes[0] == 0xfe && (bytes[1] & 0xc0U) == 0x80;
    }

    bool operator==(const Address&) const = default;
    auto operator<=>(const Address&) const = default;
};

/// Where a record was seen: the interface index, and the address family of the multicast group that
/// carried it. The same record is usually seen several times.
struct Sighting {
    std::int32_t interfaceIndex = 0;
    Family carrier = Family::IPv4;

    bool operator==(const Sighting&) const = default;
    auto operator<=>(const Sighting&) const = default;
};

enum class Change : std::uint8_t { Found, Lost };

/// An answer to a query: where, and what has been found or lost there.
template <class Value> struct Answer {
    RequestId id = 0;
    Change change = Change::Found;
    Sighting sighting;
    Value value;

    bool operator==(const Answer&) const = default;
};

using ServiceAnswer = Answer<ServiceEndpoint>;
/// The host name is in presentation format, escaped (RFC 1035, section 5.1).
using LocationAnswer = Answer<HostEndpoint>;
using AddressAnswer = Answer<Address>;

// ---- requests ----

/// Browses for all services of a type in the default domain. Events: ServiceAnswer, Settled.
struct BrowseRequest {
    RequestId id = 0;
    std::string type;

    bool operator==(const BrowseRequest&) const = default;
};

/// Queries the SRV records (RFC 2782) of one service instance. Events: LocationAnswer, Settled. A
/// record whose TTL expires is lost, so an active query shows whether the service is alive.
struct LocationRequest {
    using Value = HostEndpoint;

    RequestId id = 0;
    ServiceEndpoint service;

    bool operator==(const LocationRequest&) const = default;
};

/// Queries the A or AAAA records of a host name. Events: AddressAnswer, Settled.
struct AddressRequest {
    using Value = Address;

    RequestId id = 0;
    std::string hostName; ///< in presentation format, escaped: "phone.local"
    Family family = Family::IPv4;

    bool operator==(const AddressRequest&) const = default;
};

/// An address record to publish on one interface only.
struct HostAddress {
    std::int32_t interfaceIndex = 0;
    Address address;

    bool operator==(const HostAddress&) const = default;
};

/// How many registrations an engine probes for at once; the others wait for their turn. The cost of
/// a probe in Avahi grows with the number of probes underway.
inline constexpr std::size_t kRegistrationsAtOnce = 32;

/// Publishes a service in the default domain, with an empty TXT record (RFC 6763, section 6.1).
/// Events: Registered; or Collision (name conflict, on this computer or on the network; nothing is
/// published any more); or Failed. An engine never renames a service.
struct RegisterRequest {
    RequestId id = 0;
    std::string name;
    std::string type;
    std::uint16_t port = 0; ///< host byte order
    /// The host of the service, published by this request with `addresses`, without reverse
    /// records.
    std::string hostName;
    std::vector<HostAddress> addresses;
    /// Where the service is published: on one interface, or on all of them.
    std::int32_t interfaceIndex = kEveryInterface;
    /// The names were this program's until the last engine went down, a moment ago: they are
    /// announced without probing for them again, which takes most of a second. A conflict is still
    /// detected.
    bool isOwnName = false;

    bool operator==(const RegisterRequest&) const = default;
};

/// Replaces the address records of a registration; the service itself stays published.
struct UpdateAddressesRequest {
    RequestId id = 0;
    std::vector<HostAddress> addresses;

    bool operator==(const UpdateAddressesRequest&) const = default;
};

/// Ends a query or withdraws a registration (with a goodbye, RFC 6762 section 10.1). Events that
/// are already queued may still arrive.
struct StopRequest {
    RequestId id = 0;

    bool operator==(const StopRequest&) const = default;
};

using Request = std::variant<BrowseRequest, LocationRequest, AddressRequest, RegisterRequest,
                             UpdateAddressesRequest, StopRequest>;

// ---- events ----

/// The engine is up and has no active requests: callers must send all of theirs (again) now. The
/// host name is the computer's as published, like "my-pc.local"; it may be empty.
struct EngineUp {
    std::string hostName;

    bool operator==(const EngineUp&) const = default;
};

/// The engine is down and has dropped all requests. It comes back on its own, with EngineUp.
struct EngineDown {
    std::error_code error;

    bool operator==(const EngineDown&) const = default;
};

/// The initial answer period is over: everything that is known so far has been reported. Once per
/// query.
struct Settled {
    RequestId id = 0;

    bool operator==(const Settled&) const = default;
};

/// Service and host name are established.
struct Registered {
    RequestId id = 0;

    bool operator==(const Registered&) const = default;
};

struct Collision {
    enum class Of : std::uint8_t { Service, Host };

    RequestId id = 0;
    Of of = Of::Service;

    bool operator==(const Collision&) const = default;
};

/// The query or registration has failed and ended.
struct Failed {
    RequestId id = 0;
    DnsSdError error = DnsSdError::Internal;

    bool operator==(const Failed&) const = default;
};

/// The loop of an engine process turns. Sent every `kAliveInterval`, and only to the process that
/// started it.
struct Alive {
    bool operator==(const Alive&) const = default;
};

/// Each sign wakes two processes up, also while nothing else happens.
inline constexpr std::chrono::seconds kAliveInterval{10};

using Event = std::variant<EngineUp, EngineDown, ServiceAnswer, LocationAnswer, AddressAnswer,
                           Settled, Registered, Collision, Failed, Alive>;

} // namespace quillbox::dnssd
