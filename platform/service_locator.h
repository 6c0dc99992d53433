#pragma once

#include "platform/endpoint.h"

#include <functional>
#include <optional>
#include <string>

namespace quillbox {

/// Tells where the file servers that are announced on the network (`_smb._tcp`) can be reached.
/// Belongs to the main thread.
class ServiceLocator {
public:
    using Completion = std::function<void(std::optional<HostEndpoint>)>;

    virtual ~ServiceLocator() = default;

    /// Looks up a service by its instance name (UTF-8, as it was announced). Completes on the main
    /// thread, at most once and never inside this call, with a host that this computer's own
    /// resolver knows and a port; none when the service is not found. A caller that waits for
    /// longer than it likes goes on alone.
    virtual void locate(const std::string& instanceName, Completion completion) = 0;
};

} // namespace quillbox
