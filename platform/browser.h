#pragma once

#include "platform/dispatch_queue.h"
#include "platform/endpoint.h"

#include <functional>
#include <memory>
#include <system_error>
#include <vector>

namespace quillbox {

/// Browses for DNS-SD services of one type (RFC 6763, section 4).
///
/// Delivers the complete current set at each change: one entry a service, however many interfaces
/// and address families carry it, in the order in which they were first seen. While the DNS-SD
/// engine is away the last set stands and nothing is delivered. At most ten sets a second, at most
/// 256 services: what is seen later is left out, which is said once on standard error.
///
/// Handlers run on the queue that the browser was started on, never inside the call that installed
/// them. After `cancel`, sets that are already on the queue are still delivered. A browser that
/// nobody holds any more is cancelled, without a report.
class Browser {
public:
    enum class State {
        Setup,
        Waiting, ///< no DNS-SD engine at present
        Ready,
        Failed, ///< for good: this type can never be browsed
        Cancelled,
    };

    using Results = std::vector<Endpoint>;
    using ResultsChangedHandler = std::function<void(const Results&)>;

    /// The error is set in `Waiting` and `Failed`.
    using StateUpdateHandler = std::function<void(State, std::error_code)>;

    virtual ~Browser() = default;

    /// These two are called before `start`.
    virtual void setResultsChangedHandler(ResultsChangedHandler handler) = 0;
    virtual void setStateUpdateHandler(StateUpdateHandler handler) = 0;

    /// Called once.
    virtual void start(std::shared_ptr<DispatchQueue> queue) = 0;

    /// Idempotent.
    virtual void cancel() = 0;
};

} // namespace quillbox
