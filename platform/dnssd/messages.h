#pragma once

#include "platform/dnssd/dns_sd_error.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

/// What is asked of a DNS-SD engine, and what it answers: plain values, so that an engine may live
/// in this process or in another one. Nothing in an event has been checked beyond its form: names
/// and addresses are as some host on the network sent them.
namespace quillbox::dnssd {

/// Names one question for as long as it stands. The asker chooses it and never uses it again.
using AskId = std::uint32_t;

/// In the place of an interface's index.
inline constexpr std::int32_t kEveryInterface = -1;

enum class Family : std::uint8_t { IPv4, IPv6 };

/// An address without port or scope: 4 or 16 bytes in network order, by family.
struct Address {
    Family family = Family::IPv4;
    std::array<std::uint8_t, 16> bytes{};

    bool operator==(const Address&) const = default;
    auto operator<=>(const Address&) const = default;
};

/// Where a record was seen: the interface by its index, and the family of the multicast group that
/// carried it. The same record is usually seen several times.
struct Sighting {
    std::int32_t interfaceIndex = 0;
    Family carrier = Family::IPv4;

    bool operator==(const Sighting&) const = default;
    auto operator<=>(const Sighting&) const = default;
};

// ---- requests ----

/// All services of a type, in the default domain: ServiceFound, ServiceLost, Settled.
struct BrowseRequest {
    AskId id = 0;
    std::string type;

    bool operator==(const BrowseRequest&) const = default;
};

/// The SRV records (RFC 2782) of one service instance: LocationFound, LocationLost, Settled. A
/// record whose lifetime ran out is lost, so an open question tells whether the service lives.
struct LocationRequest {
    AskId id = 0;
    std::string name;
    std::string type;
    std::string domain;

    bool operator==(const LocationRequest&) const = default;
};

/// The A or AAAA records of a host name: AddressFound, AddressLost, Settled.
struct AddressRequest {
    AskId id = 0;
    std::string hostName; ///< as DNS presents it: "phone.local", escaped by RFC 1035, section 5.1
    Family family = Family::IPv4;

    bool operator==(const AddressRequest&) const = default;
};

/// An address record to be published on one interface only.
struct HostAddress {
    std::int32_t interfaceIndex = 0;
    Address address;

    bool operator==(const HostAddress&) const = default;
};

/// An engine probes for the names of so many registrations at once; the others wait for their turn.
/// What Avahi spends on a probe grows with the number of those that are under way.
inline constexpr std::size_t kRegistrationsAtOnce = 32;

/// Publishes a service: Registered, or Collision (the name is taken, here or elsewhere; nothing is
/// published any more), or Failed. A name is never changed by the engine.
struct RegisterRequest {
    AskId id = 0;
    std::string name;
    std::string type;
    std::string domain;           ///< empty: the default domain
    std::uint16_t port = 0;       ///< host byte order
    std::vector<std::string> txt; ///< empty: the single empty string
    /// The host that the service is on, published by this same request with `addresses`, without
    /// reverse records. Empty: the computer's own host name, whose records are not ours.
    std::string hostName;
    std::vector<HostAddress> addresses;
    /// Where the service is published: on one interface, or on all of them.
    std::int32_t interfaceIndex = kEveryInterface;

    bool operator==(const RegisterRequest&) const = default;
};

/// Replaces the address records of a registration; the service itself stays published.
struct UpdateAddressesRequest {
    AskId id = 0;
    std::vector<HostAddress> addresses;

    bool operator==(const UpdateAddressesRequest&) const = default;
};

/// Ends a question or withdraws a registration (with a goodbye, RFC 6762 section 10.1). Events that
/// are already under way may still arrive.
struct StopRequest {
    AskId id = 0;

    bool operator==(const StopRequest&) const = default;
};

using Request = std::variant<BrowseRequest, LocationRequest, AddressRequest, RegisterRequest,
                             UpdateAddressesRequest, StopRequest>;

// ---- events ----

/// The engine works. It knows of no question: all that stand are to be asked (again) now. The host
/// name is the computer's as published, like "my-pc.local"; it may be empty.
struct EngineUp {
    std::string hostName;

    bool operator==(const EngineUp&) const = default;
};

/// The engine is gone, with all it was asked. It comes back by itself, with EngineUp.
struct EngineDown {
    std::error_code error;

    bool operator==(const EngineDown&) const = default;
};

struct ServiceFound {
    AskId id = 0;
    Sighting sighting;
    std::string name;
    std::string type;
    std::string domain;

    bool operator==(const ServiceFound&) const = default;
};

struct ServiceLost {
    AskId id = 0;
    Sighting sighting;
    std::string name;
    std::string type;
    std::string domain;

    bool operator==(const ServiceLost&) const = default;
};

struct LocationFound {
    AskId id = 0;
    Sighting sighting;
    std::string hostName; ///< as DNS presents it, escaped
    std::uint16_t port = 0;

    bool operator==(const LocationFound&) const = default;
};

struct LocationLost {
    AskId id = 0;
    Sighting sighting;
    std::string hostName;
    std::uint16_t port = 0;

    bool operator==(const LocationLost&) const = default;
};

struct AddressFound {
    AskId id = 0;
    Sighting sighting;
    Address address;

    bool operator==(const AddressFound&) const = default;
};

struct AddressLost {
    AskId id = 0;
    Sighting sighting;
    Address address;

    bool operator==(const AddressLost&) const = default;
};

/// The network has had its time to answer: what is there has been told, as far as it is known. Once
/// a question.
struct Settled {
    AskId id = 0;

    bool operator==(const Settled&) const = default;
};

/// Service and host name are established.
struct Registered {
    AskId id = 0;

    bool operator==(const Registered&) const = default;
};

struct Collision {
    enum class Of : std::uint8_t { Service, Host };

    AskId id = 0;
    Of of = Of::Service;

    bool operator==(const Collision&) const = default;
};

/// The question or registration cannot be had, and has ended.
struct Failed {
    AskId id = 0;
    DnsSdError error = DnsSdError::Internal;

    bool operator==(const Failed&) const = default;
};

using Event =
    std::variant<EngineUp, EngineDown, ServiceFound, ServiceLost, LocationFound, LocationLost,
                 AddressFound, AddressLost, Settled, Registered, Collision, Failed>;

} // namespace quillbox::dnssd
