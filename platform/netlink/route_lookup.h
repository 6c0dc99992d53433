#pragma once

#include "platform/net_service.h"

#include <optional>

namespace quillbox {

/// A route as the kernel's lookup found it.
struct RouteLookup {
    bool isUnicast = false; ///< leads to another host; not local, broadcast, multicast or blocked
    int interfaceIndex = 0; ///< of the interface that packets leave through
};

/// Looks up the route to an IPv4 or IPv6 address in all routing tables (RTM_GETROUTE,
/// rtnetlink(7)). With `boundTo`, finds the route of a socket that is bound to the interface with
/// this index; 0 for a socket that is not bound. nullopt if there is no route, or the kernel cannot
/// be asked.
std::optional<RouteLookup> lookUpRoute(const SocketAddress& address, int boundTo);

} // namespace quillbox
