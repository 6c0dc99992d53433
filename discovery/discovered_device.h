#pragma once

#include "platform/values/endpoint.h"

#include <string>

namespace quillbox {

/// A service of a phone found by discovery.
struct DiscoveredDevice {
    Endpoint endpoint; ///< always a service, exactly as delivered by the browser
    std::string name;  ///< the instance name, unchanged

    bool operator==(const DiscoveredDevice&) const = default;
};

} // namespace quillbox
