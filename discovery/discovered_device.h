#pragma once

#include "platform/endpoint.h"

#include <string>

namespace quillbox {

/// A phone's service as discovery found it.
struct DiscoveredDevice {
    Endpoint endpoint; ///< always a service, as the browser delivered it
    std::string name;  ///< the instance name, verbatim

    bool operator==(const DiscoveredDevice&) const = default;
};

} // namespace quillbox
