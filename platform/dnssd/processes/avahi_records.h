#pragma once

#include "platform/dnssd/avahi/avahi_api.h"

#include <cstdint>
#include <cstring>
#include <span>

#include <avahi-common/address.h>

/// Conversions between Avahi's types and ours, used with both libraries.
namespace quillbox::dnssd {

inline Sighting sightingOf(AvahiIfIndex interfaceIndex, AvahiProtocol protocol)
{
    return {interfaceIndex, protocol == AVAHI_PROTO_INET6 ? Family::IPv6 : Family::IPv4};
}

/// `bytes` points to 4 or 16 bytes, depending on the family.
inline Address addressOf(Family family, const void* bytes)
{
    Address address;
    address.family = family;
    std::memcpy(address.bytes.data(), bytes, family == Family::IPv4 ? 4 : 16);
    return address;
}

inline AvahiAddress avahiAddressOf(const Address& address)
{
    AvahiAddress result{};
    if (address.family == Family::IPv4) {
        result.proto = AVAHI_PROTO_INET;
        std::memcpy(&result.data.ipv4, address.bytes.data(), 4);
    } else {
        result.proto = AVAHI_PROTO_INET6;
        std::memcpy(&result.data.ipv6, address.bytes.data(), 16);
    }
    return result;
}

inline std::uint16_t recordTypeOf(AvahiApi::Record record)
{
    switch (record) {
    case AvahiApi::Record::Location:
        return AVAHI_DNS_TYPE_SRV;
    case AvahiApi::Record::IPv4Address:
        return AVAHI_DNS_TYPE_A;
    case AvahiApi::Record::IPv6Address:
        return AVAHI_DNS_TYPE_AAAA;
    }
    return 0;
}

inline AvahiPublishFlags addressFlags(AvahiGroup::Probing probing)
{
    return static_cast<AvahiPublishFlags>(probing == AvahiGroup::Probing::Done
                                              ? AVAHI_PUBLISH_NO_REVERSE | AVAHI_PUBLISH_NO_PROBE
                                              : AVAHI_PUBLISH_NO_REVERSE);
}

inline AvahiPublishFlags recordFlags(const AvahiGroup::RawRecord& record)
{
    return static_cast<AvahiPublishFlags>(
        record.isUnique ? AVAHI_PUBLISH_UNIQUE | AVAHI_PUBLISH_NO_PROBE : 0);
}

static_assert(kEveryInterface == AVAHI_IF_UNSPEC);

/// Handles the events that all browsers of both libraries have in common. Returns true when the
/// browser found or lost something.
inline bool isChange(AvahiBrowserEvent event, AvahiAnswers& answers, int error)
{
    switch (event) {
    case AVAHI_BROWSER_NEW:
    case AVAHI_BROWSER_REMOVE:
        return true;
    case AVAHI_BROWSER_ALL_FOR_NOW:
        answers.onSettled();
        return false;
    case AVAHI_BROWSER_FAILURE:
        answers.onFailed(error);
        return false;
    case AVAHI_BROWSER_CACHE_EXHAUSTED:
        return false;
    }
    return false;
}

/// Reports a record of a type that `AvahiApi::Record` has, with its data in wire format, unless
/// the data is malformed.
inline void reportRecord(AvahiAnswers& answers, AvahiAnswers::Change change,
                         const Sighting& sighting, std::uint16_t type,
                         std::span<const std::uint8_t> data)
{
    if (type == AVAHI_DNS_TYPE_SRV) {
        if (const auto location = decodeServiceLocation(data))
            answers.onLocation(change, sighting, *location);
    } else if (type == AVAHI_DNS_TYPE_A && data.size() == 4) {
        answers.onAddress(change, sighting, addressOf(Family::IPv4, data.data()));
    } else if (type == AVAHI_DNS_TYPE_AAAA && data.size() == 16) {
        answers.onAddress(change, sighting, addressOf(Family::IPv6, data.data()));
    }
}

inline AvahiAnswers::Change changeOf(AvahiBrowserEvent event)
{
    return event == AVAHI_BROWSER_NEW ? AvahiAnswers::Change::Found : AvahiAnswers::Change::Lost;
}

} // namespace quillbox::dnssd
