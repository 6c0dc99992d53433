#include "platform/dnssd/operations/host_identity.h"

#include "platform/dnssd/operations/names.h"
#include "platform/values/text.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

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

} // namespace

HostIdentity HostIdentities::claim(const std::string& computer, const std::string& serviceName,
                                   unsigned& number)
{
    const std::string name = normalized(serviceName);
    std::uint64_t hash = stableHash(name);
    const std::string base = label(computer, name, hash);
    HostIdentity identity;
    for (;; ++number) {
        identity.hostName = (number > 1 ? base + '-' + std::to_string(number) : base) + ".local";
        if (hostNames.insert(identity.hostName).second)
            break;
    }
    for (identity.loopback = loopbackAddress(hash); !loopbacks.insert(identity.loopback).second;)
        identity.loopback = loopbackAddress(hash += 0x10000);
    return identity;
}

void HostIdentities::release(const HostIdentity& identity)
{
    hostNames.erase(identity.hostName);
    loopbacks.erase(identity.loopback);
}

} // namespace quillbox::dnssd
