#pragma once

#include "platform/dispatch_queue.h"
#include "platform/values/endpoint.h"

#include <functional>
#include <memory>
#include <system_error>
#include <vector>

namespace quillbox {

/// Browses for DNS-SD services of one type (RFC 6763, section 4).
///
/// Delivers the complete current set on each change: one entry per service, however many interfaces
/// and address families announce it, in the order in which they were first seen. While no DNS-SD
/// engine is available, the last set stays valid and nothing is delivered. At most ten sets per
/// second and 256 services; while the set is full, further services are ignored, which is reported
/// once on standard error.
///
/// Handlers run on the queue that the browser was started on, never inside the call that installed
/// them. After `cancel`, sets that are already queued are still delivered. Destroying the last
/// reference cancels the browser, without a report.
class Browser {
public:
    enum class State {
        Setup,
        Waiting, ///< no DNS-SD engine at present
        Ready,
        Failed, ///< permanently: this type cannot be browsed
        Cancelled,
    };

    using Results = std::vector<Endpoint>;
    using ResultsChangedHandler = std::function<void(const Results&)>;

    /// The error is set in `Waiting` and `Failed`.
    using StateUpdateHandler = std::function<void(State, std::error_code)>;

    virtual ~Browser() = default;

    /// Both handlers are set before `start`.
    virtual void setResultsChangedHandler(ResultsChangedHandler handler) = 0;
    virtual void setStateUpdateHandler(StateUpdateHandler handler) = 0;

    /// Called once.
    virtual void start(std::shared_ptr<DispatchQueue> queue) = 0;

    /// Idempotent.
    virtual void cancel() = 0;
};

} // namespace quillbox
