#include "platform/dnssd/operations/resolution.h"

#include "platform/dnssd/operations/names.h"
#include "platform/values/socket_address.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

namespace quillbox::dnssd {

namespace {

/// The maximum size of a name in presentation format: 255 bytes on the wire (RFC 1035, section
/// 2.3.4), each of them escaped.
constexpr std::size_t kMaximumPresentedName = 1020;

/// A target of "." means that the service is decidedly not available (RFC 2782).
bool isHostName(const std::string& name)
{
    return !name.empty() && name != "." && name.size() <= kMaximumPresentedName
           && name.find('\0') == std::string::npos;
}

SocketAddress socketAddress(const Address& address, std::uint16_t port, int interfaceIndex)
{
    const bool isIPv4 = address.family == Family::IPv4;
    // A link-local address needs its scope: the interface on which its record arrived.
    const int scope = address.isLinkLocalIPv6() ? std::max(interfaceIndex, 0) : 0;
    return makeSocketAddress(std::span(address.bytes).first(isIPv4 ? 4 : 16), port,
                             static_cast<std::uint32_t>(scope));
}

void append(std::vector<DnsSd::FoundAddress>& addresses, const AddressQuery& query,
            std::uint16_t port, std::size_t limit)
{
    for (const auto& record : query.records()) {
        const int interfaceIndex = record.sighting.interfaceIndex;
        DnsSd::FoundAddress address{socketAddress(record.value, port, interfaceIndex),
                                    interfaceIndex};
        if (addresses.size() < limit && std::ranges::find(addresses, address) == addresses.end())
            addresses.push_back(std::move(address));
    }
}

} // namespace

Resolution::Resolution(Center& itsCenter, Report updates, Endpoint resolved)
    : center(itsCenter), report(std::move(updates)), endpoint(std::move(resolved))
{
}

void Resolution::start()
{
    // What is invalid has no addresses, which is reported immediately.
    if (const auto* service = endpoint.service()) {
        if (isInstanceName(service->name) && isServiceType(service->type))
            location = center.locations.query({0, *service}, *this);
    } else if (const auto* host = endpoint.host(); isHostName(host->host)) {
        hosts.push_back(makeHost({host->host, 0}));
    }
    scheduleUpdate();
}

void Resolution::scheduleUpdate()
{
    // Deferred, so that events that arrive together cause one update, and all queries have
    // handled a change of the engine's state by then.
    if (std::exchange(isScheduled, true))
        return;
    center.queue->async([weak = weak_from_this()] {
        if (const auto self = weak.lock()) {
            self->isScheduled = false;
            self->update();
        }
    });
}

void Resolution::update()
{
    const bool asks = location || !hosts.empty();
    if (asks && center.link.state() == EngineLink::State::Unknown)
        return;
    if (location)
        followLocations();
    collectAddresses();
    report.deliver({known, isSettled(&Host::ipv4), isSettled(&Host::ipv6), center.link.error(),
                    hostsOfAddresses()});
}

void Resolution::followLocations()
{
    std::vector<Host> current;
    for (const auto& record : location->records()) {
        const auto isOfRecord = [&record](const Host& host) {
            return isSame(host.location, record.value);
        };
        if (current.size() == kMaximumHosts || !isHostName(record.value.host)
            || std::ranges::any_of(current, isOfRecord))
            continue;
        const auto kept = std::ranges::find_if(hosts, isOfRecord);
        current.push_back(kept != hosts.end() ? *kept : makeHost(record.value));
    }
    hosts = std::move(current);
}

Resolution::Host Resolution::makeHost(HostEndpoint where)
{
    auto ipv4 = center.addresses.query({0, where.host, Family::IPv4}, *this);
    auto ipv6 = center.addresses.query({0, where.host, Family::IPv6}, *this);
    return {std::move(where), std::move(ipv4), std::move(ipv6)};
}

void Resolution::collectAddresses()
{
    std::vector<DnsSd::FoundAddress> ipv4;
    std::vector<DnsSd::FoundAddress> current;
    for (const Host& host : hosts) {
        append(ipv4, *host.ipv4, host.location.port, kMaximumAddresses);
        append(current, *host.ipv6, host.location.port, kMaximumAddresses);
    }
    current.insert(current.begin(), ipv4.begin(), ipv4.end());
    std::erase_if(known, [&current](const DnsSd::FoundAddress& address) {
        return std::ranges::find(current, address) == current.end();
    });
    for (DnsSd::FoundAddress& address : current) {
        if (std::ranges::find(known, address) == known.end())
            known.push_back(std::move(address));
    }
}

std::vector<HostEndpoint> Resolution::hostsOfAddresses() const
{
    std::vector<HostEndpoint> result;
    for (const Host& host : hosts) {
        if (location && (!host.ipv4->records().empty() || !host.ipv6->records().empty()))
            result.push_back(host.location);
    }
    return result;
}

bool Resolution::isSettled(std::shared_ptr<const AddressQuery> Host::*query) const
{
    if (hosts.empty())
        return !location || location->isSettled();
    return std::ranges::all_of(hosts,
                               [query](const Host& host) { return (host.*query)->isSettled(); });
}

} // namespace quillbox::dnssd
