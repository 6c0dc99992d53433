#pragma once

#include "platform/connection.h"

#include <functional>
#include <memory>
#include <string>
#include <system_error>

namespace quillbox {

/// How a listener is advertised by DNS-SD, in the default domain.
struct ServiceRegistration {
    std::string name; ///< the instance name, UTF-8; changed on a name conflict
    std::string type; ///< "_smb._tcp"

    bool operator==(const ServiceRegistration&) const = default;
};

/// A TCP listener for IPv4 and IPv6, with one DNS-SD registration of its port.
///
/// Handlers run on the queue that the listener was started on, never inside the call that installed
/// them. `cancel` closes the port and withdraws the registration (goodbye, RFC 6762 section 10.1),
/// then reports `Cancelled`, the last report. Destroying the last reference cancels the listener,
/// without a report.
class Listener {
public:
    enum class State {
        Setup,
        Waiting, ///< not advertised at present: no DNS-SD engine, or renaming after a conflict
        Ready,   ///< listening and advertised
        Failed,  ///< permanently: an invalid name, not permitted, too many entries
        Cancelled,
    };

    /// The error is set in `Waiting` and `Failed`.
    using StateUpdateHandler = std::function<void(State, std::error_code)>;

    /// Called with each accepted connection, which is not yet started.
    using NewConnectionHandler = std::function<void(std::shared_ptr<Connection>)>;

    virtual ~Listener() = default;

    /// The service and both handlers are set before `start`.
    virtual void setService(ServiceRegistration service) = 0;
    virtual void setNewConnectionHandler(NewConnectionHandler handler) = 0;
    virtual void setStateUpdateHandler(StateUpdateHandler handler) = 0;

    /// Called once. The queue comes from the same backend as the listener. The registration waits
    /// up to a second for an earlier listener of the service to close its port.
    virtual void start(std::shared_ptr<DispatchQueue> queue) = 0;

    /// Idempotent.
    virtual void cancel() = 0;
};

} // namespace quillbox
