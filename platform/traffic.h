#pragma once

#include "platform/text.h"

#include <cstdint>
#include <map>
#include <string>

namespace quillbox {

/// What the connections that a listener accepted have carried: a session is one of them.
struct Traffic {
    std::uint64_t sessions = 0;      ///< that are open
    std::uint64_t sessionsInAll = 0; ///< that were ever accepted
    std::uint64_t bytesReceived = 0; ///< from those who connected
    std::uint64_t bytesSent = 0;     ///< to them, as far as the system has taken them over

    bool operator==(const Traffic&) const = default;
};

/// The traffic of this process since its start.
struct TrafficReport {
    Traffic total; ///< of all listeners, those that are closed included

    /// Of the listeners that are open, or have connections that are, by the name that each was to
    /// be advertised under; of two with one name the newer one. Their ports are nobody's business.
    std::map<std::string, Traffic, CanonicalLess> listeners;
};

} // namespace quillbox
