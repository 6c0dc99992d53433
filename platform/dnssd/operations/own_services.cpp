#include "platform/dnssd/operations/own_services.h"

#include "platform/dnssd/operations/center.h"
#include "platform/dnssd/operations/names.h"
#include "platform/values/text.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace quillbox::dnssd {

namespace {

// With the hash, the hyphens and a number of six digits these fit into a label of 63 bytes.
constexpr std::size_t kServiceSize = 28;
constexpr std::size_t kComputerSize = 18;

/// In place of a service name of which nothing can be written in a host name.
constexpr const char* kNamelessService = "server";

std::string hexadecimal(std::uint32_t value)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (int shift = 28; shift >= 0; shift -= 4)
        text += kDigits[(value >> shift) & 0xfU];
    return text;
}

/// The service's name comes first, because file managers show the host name in their sidebar, where
/// there is room for its beginning only. The computer's name distinguishes the relays of different
/// computers to the same phone, and the hash services whose names look alike in a host name. It
/// depends on the name only, so the host names do not depend on the order of the registrations.
std::string label(const std::string& computer, const std::string& serviceName, std::uint64_t hash)
{
    std::string result = hostSlug(serviceName, kServiceSize);
    if (result.empty())
        result = kNamelessService;
    const std::string host = hostSlug(computer.substr(0, computer.find('.')), kComputerSize);
    if (!host.empty())
        result += '-' + host;
    return result + '-' + hexadecimal(static_cast<std::uint32_t>(hash ^ (hash >> 32U)));
}

/// An address in 127.0.0.0/8, but outside 127.0.0.0/16, which systems use themselves.
Address loopbackAddress(std::uint64_t hash)
{
    Address address;
    address.bytes = {127, static_cast<std::uint8_t>(1 + hash % 254),
                     static_cast<std::uint8_t>((hash >> 8U) % 256),
                     static_cast<std::uint8_t>(1 + (hash >> 16U) % 254)};
    return address;
}

std::string inNumbers(const Address& ipv4)
{
    const auto& bytes = ipv4.bytes;
    return std::to_string(bytes[0]) + '.' + std::to_string(bytes[1]) + '.'
           + std::to_string(bytes[2]) + '.' + std::to_string(bytes[3]);
}

} // namespace

OwnServices::Lookup::Lookup(Center& center, Report updates, std::string serviceName,
                            std::string serviceType)
    : services(center.ownServices),
      report(std::move(updates)),
      name(std::move(serviceName)),
      type(std::move(serviceType))
{
    services.lookups.push_back(this);
}

OwnServices::Lookup::~Lookup()
{
    std::erase(services.lookups, this);
}

void OwnServices::Lookup::tell()
{
    report.deliver(services.find(name, type));
}

OwnServices::Entry::Entry(OwnServices& allServices, const ServiceRegistration& registration,
                          std::uint16_t port)
    : services(allServices), name(registration.name), type(registration.type)
{
    service.onLoopback.port = port;
    services.entries.push_back(this);
}

OwnServices::Entry::~Entry()
{
    std::erase(services.entries, this);
    services.changed();
}

void OwnServices::Entry::claimHost(const std::string& computer, unsigned& number)
{
    const auto isFree = [this](const auto& isSame) {
        return std::ranges::none_of(services.entries, [this, &isSame](const Entry* other) {
            return other != this && isSame(*other);
        });
    };
    const std::string normal = normalized(name);
    std::uint64_t hash = stableHash(normal);
    const std::string base = label(computer, normal, hash);
    for (;; ++number) {
        service.hostName = (number > 1 ? base + '-' + std::to_string(number) : base) + ".local";
        if (isFree([this](const Entry& other) { return other.hostName() == hostName(); }))
            break;
    }
    for (;; hash += 0x10000) {
        ownLoopback = loopbackAddress(hash);
        if (isFree([this](const Entry& other) { return other.ownLoopback == ownLoopback; }))
            break;
    }
    service.onLoopback.host = inNumbers(ownLoopback);
    setPublished(false);
}

void OwnServices::Entry::setPublished(bool isPublished)
{
    service.isPublished = isPublished;
    services.changed();
}

/// Of two entries with the same name returns the newer: the older is about to be destroyed.
std::optional<DnsSd::OwnService> OwnServices::find(const std::string& name,
                                                   const std::string& type) const
{
    const auto found =
        std::find_if(entries.rbegin(), entries.rend(), [&name, &type](const Entry* entry) {
            return canonicallyEqual(entry->name, name) && isSameName(entry->type, type);
        });
    return found != entries.rend() ? std::optional((*found)->service) : std::nullopt;
}

void OwnServices::changed() const
{
    for (Lookup* lookup : lookups)
        lookup->tell();
}

} // namespace quillbox::dnssd
