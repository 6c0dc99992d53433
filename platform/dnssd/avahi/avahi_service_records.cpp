#include "platform/dnssd/avahi/avahi_service_records.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include <avahi-common/address.h>
#include <avahi-common/defs.h>
#include <avahi-common/domain.h>
#include <avahi-common/error.h>

namespace quillbox::dnssd {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint16_t kPointer = 12;
constexpr std::uint16_t kText = 16;
constexpr std::uint16_t kLocation = 33;

// RFC 6762, section 10: records that contain a host name live for two minutes, others for 75.
constexpr std::uint32_t kHostLifetime = 120;
constexpr std::uint32_t kOtherLifetime = 4500;

void append(Bytes& bytes, const void* more, std::size_t size)
{
    const auto* first = static_cast<const std::uint8_t*>(more);
    bytes.push_back(static_cast<std::uint8_t>(size));
    bytes.insert(bytes.end(), first, first + size);
}

/// A name in wire format (RFC 1035, section 3.1), uncompressed; empty when it is invalid.
Bytes wireName(const std::string& name)
{
    Bytes bytes;
    for (const char* rest = name.c_str(); *rest != '\0';) {
        std::array<char, AVAHI_LABEL_MAX> label{};
        if (avahi_unescape_label(&rest, label.data(), label.size()) == nullptr)
            return {};
        append(bytes, label.data(), std::strlen(label.data()));
    }
    bytes.push_back(0);
    return bytes;
}

Bytes locationData(std::uint16_t port, const Bytes& host)
{
    Bytes bytes(6 + host.size()); // priority and weight are 0
    bytes[4] = static_cast<std::uint8_t>(port >> 8U);
    bytes[5] = static_cast<std::uint8_t>(port);
    std::ranges::copy(host, bytes.begin() + 6);
    return bytes;
}

} // namespace

std::vector<AvahiGroup::RawRecord> serviceRecords(const RegisterRequest& request,
                                                  const std::string& domain)
{
    std::array<char, AVAHI_DOMAIN_NAME_MAX> joined{};
    if (avahi_service_name_join(joined.data(), joined.size(), request.name.c_str(),
                                request.type.c_str(), domain.c_str())
        != AVAHI_OK)
        return {};
    const std::string instance = joined.data();
    const std::string type = request.type + '.' + domain;
    const Bytes instanceName = wireName(instance);
    const Bytes typeName = wireName(type);
    const Bytes hostName = wireName(request.hostName);
    if (instanceName.empty() || typeName.empty() || hostName.size() < 2)
        return {};
    const int where = request.interfaceIndex;
    return {
        {type, kPointer, kOtherLifetime, false, instanceName, where},
        {instance, kLocation, kHostLifetime, true, locationData(request.port, hostName), where},
        {instance, kText, kOtherLifetime, true, Bytes{0}, where},
        {"_services._dns-sd._udp." + domain, kPointer, kOtherLifetime, false, typeName, where},
    };
}

} // namespace quillbox::dnssd
