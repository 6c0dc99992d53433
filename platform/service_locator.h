#pragma once

#include "platform/values/endpoint.h"

#include <functional>
#include <optional>
#include <string>

namespace quillbox {

/// Finds the host and port of file servers announced on the network (`_smb._tcp`). Used on the main
/// thread.
class ServiceLocator {
public:
    using Completion = std::function<void(std::optional<HostEndpoint>)>;

    virtual ~ServiceLocator() = default;

    /// Looks up a service by its instance name (UTF-8, as announced). Completes on the main thread,
    /// at most once and never inside this call, with a port and a host that this computer's
    /// resolver can resolve; none if the service is not found. Callers need their own timeout.
    virtual void locate(const std::string& instanceName, Completion completion) = 0;
};

} // namespace quillbox
