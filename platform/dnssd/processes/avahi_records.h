#pragma once

#include "platform/dnssd/avahi/avahi_api.h"
#include "platform/dnssd/avahi/avahi_service_location.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <utility>

#include <avahi-common/address.h>

/// What the two libraries of Avahi have in common: types, and the signature of a callback.
namespace quillbox::dnssd {

inline Sighting sightingOf(AvahiIfIndex interfaceIndex, AvahiProtocol protocol)
{
    return {interfaceIndex, protocol == AVAHI_PROTO_INET6 ? Family::IPv6 : Family::IPv4};
}

/// `bytes` are 4 or 16, depending on the family.
inline Address addressOf(Family family, std::span<const std::uint8_t> bytes)
{
    Address address;
    address.family = family;
    std::ranges::copy(bytes, address.bytes.begin());
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

inline AvahiPublishFlags withProbing(AvahiGroup::Probing probing, AvahiPublishFlags flags)
{
    return static_cast<AvahiPublishFlags>(
        probing == AvahiGroup::Probing::Done ? flags | AVAHI_PUBLISH_NO_PROBE : flags);
}

inline AvahiPublishFlags recordFlags(const AvahiGroup::RawRecord& record,
                                     AvahiGroup::Probing probing)
{
    return record.isUnique ? withProbing(probing, AVAHI_PUBLISH_UNIQUE) : AvahiPublishFlags{};
}

static_assert(kEveryInterface == AVAHI_IF_UNSPEC);

/// Reports a record of a type that `AvahiApi::Record` has, with its data in wire format, unless
/// the data is malformed.
inline void tellRecord(const AvahiAnswers& answers, Change change, const Sighting& sighting,
                       std::uint16_t type, std::span<const std::uint8_t> data)
{
    if (type == AVAHI_DNS_TYPE_SRV) {
        if (auto location = decodeServiceLocation(data))
            answers.tell(change, sighting, *std::move(location));
    } else if (type == AVAHI_DNS_TYPE_A && data.size() == 4) {
        answers.tell(change, sighting, addressOf(Family::IPv4, data));
    } else if (type == AVAHI_DNS_TYPE_AAAA && data.size() == 16) {
        answers.tell(change, sighting, addressOf(Family::IPv6, data));
    }
}

/// A browser of one of the libraries, which calls `free` for it.
template <class T, auto free> class AvahiBrowser final : public AvahiObject {
public:
    AvahiBrowser(AvahiApi& itsApi, AvahiAnswers itsAnswers) : api(itsApi), answers(itsAnswers) {}
    AvahiBrowser(const AvahiBrowser&) = delete;
    AvahiBrowser& operator=(const AvahiBrowser&) = delete;
    ~AvahiBrowser() override
    {
        if (object != nullptr)
            free(object);
    }

    /// The callback of a service browser.
    static void onService(T* /*browser*/, AvahiIfIndex interfaceIndex, AvahiProtocol protocol,
                          AvahiBrowserEvent event, const char* name, const char* type,
                          const char* domain, AvahiLookupResultFlags /*flags*/, void* context)
    {
        auto& self = *static_cast<AvahiBrowser*>(context);
        if (const auto change = self.changeIn(event))
            self.answers.tell(*change, sightingOf(interfaceIndex, protocol),
                              ServiceEndpoint{name, type, domain});
    }

    /// What became of a service or record. Handles the events that are not about one.
    std::optional<Change> changeIn(AvahiBrowserEvent event)
    {
        switch (event) {
        case AVAHI_BROWSER_NEW:
            return Change::Found;
        case AVAHI_BROWSER_REMOVE:
            return Change::Lost;
        case AVAHI_BROWSER_ALL_FOR_NOW:
            answers.settle();
            return std::nullopt;
        case AVAHI_BROWSER_FAILURE:
            answers.fail(api.lastError());
            return std::nullopt;
        case AVAHI_BROWSER_CACHE_EXHAUSTED:
            return std::nullopt;
        }
        return std::nullopt;
    }

    AvahiApi& api;
    AvahiAnswers answers;
    T* object = nullptr;
};

} // namespace quillbox::dnssd
