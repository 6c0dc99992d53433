#pragma once

#include "platform/values/text.h"

#include <cstdint>
#include <map>
#include <string>

namespace quillbox {

/// Counts of the connections that a listener accepted; each of them is a session.
struct Traffic {
    std::uint64_t sessions = 0;      ///< currently open
    std::uint64_t sessionsInAll = 0; ///< accepted so far
    std::uint64_t bytesReceived = 0; ///< from the clients
    std::uint64_t bytesSent = 0;     ///< to the clients, as accepted by the kernel

    bool operator==(const Traffic&) const = default;
};

/// The traffic of this process since its start.
struct TrafficReport {
    Traffic total; ///< of all listeners, including closed ones

    /// Of each listener that is open or still has open connections, by the name that it was
    /// registered with; if two have the same name, of the newer one. Ports are left out on purpose.
    std::map<std::string, Traffic, CanonicalLess> listeners;
};

} // namespace quillbox
