#include "platform/dial/dialable_address.h"

#include "platform/values/socket_address.h"

#include <algorithm>
#include <system_error>

namespace quillbox {

void addCandidate(std::vector<Candidate>& candidates, const SocketAddress& address,
                  int interfaceIndex)
{
    const auto known =
        std::find_if(candidates.begin(), candidates.end(),
                     [&address](const Candidate& each) { return each.address == address; });
    if (known == candidates.end())
        candidates.push_back({.address = address, .interfaces = {interfaceIndex}});
    else
        known->interfaces.insert(interfaceIndex);
}

DialPermission mayDial(const Candidate& candidate, const OwnPorts& ownPorts,
                       const NetworkMonitor& monitor)
{
    const auto& [address, interfaces] = candidate;
    const DialPermission refused{
        .refusal = std::make_error_code(candidate.isTyped() ? std::errc::connection_refused
                                                            : std::errc::address_not_available)};
    const auto plain = PlainAddress::of(address);
    if (!plain)
        return refused;
    if (ownPorts.contains(portOf(address)) && isOfThisComputer(address, monitor.addresses()))
        return refused;
    if (candidate.isTyped())
        return {};
    if (portOf(address) == 0 || plain->isUnspecified() || plain->isMulticastOrBroadcast())
        return refused;
    if (!candidate.isFromNetwork())
        return {};
    if (plain->isLoopback() || (plain->isIPv4 && !isIPv4(address)))
        return refused;
    DialPermission permission = refused;
    for (const int interfaceIndex : interfaces) {
        switch (monitor.routeThrough(interfaceIndex, address)) {
        case OutgoingRoute::Preferred:
            return {};
        case OutgoingRoute::IfBound:
            permission = {.bindTo = interfaceIndex, .refusal = {}};
            break;
        case OutgoingRoute::Unknown:
            if (!permission)
                permission.refusal = std::make_error_code(std::errc::no_buffer_space);
            break;
        case OutgoingRoute::None:
            break;
        }
    }
    return permission;
}

bool isOfThisComputer(const SocketAddress& address, const std::vector<InterfaceAddress>& own)
{
    const auto plain = PlainAddress::of(address);
    if (!plain)
        return false;
    return plain->isLoopback() || plain->isUnspecified()
           || std::any_of(own.begin(), own.end(), [&address](const InterfaceAddress& each) {
                  return isSameHost(address, each.address);
              });
}

} // namespace quillbox
