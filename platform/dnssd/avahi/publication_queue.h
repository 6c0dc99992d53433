#pragma once

#include "platform/dnssd/engine/messages.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>

namespace quillbox::dnssd {

/// Decides which registrations are published next, in request order, at most `kRegistrationsAtOnce`
/// at a time. The cost of a call is logarithmic in the number of registrations waiting or underway;
/// established ones cost nothing. Times are monotonic.
class PublicationQueue final {
public:
    using Clock = std::chrono::steady_clock;

    /// Queues a registration. No effect if it is waiting or underway.
    void wait(RequestId id);

    /// Takes the next registration out of the queue; none while the maximum number is underway.
    std::optional<RequestId> next();

    /// Marks a registration as underway, or underway again; it is overdue at `deadline`.
    void begin(RequestId id, Clock::time_point deadline);

    /// Removes a registration, whether it is waiting or underway.
    void leave(RequestId id);

    bool isWaiting(RequestId id) const { return turns.contains(id); }
    bool isUnderway(RequestId id) const { return deadlines.contains(id); }

    /// Removes and returns the registration that has been overdue longest.
    std::optional<RequestId> takeOverdue(Clock::time_point now);

    /// When the next registration becomes overdue.
    std::optional<Clock::time_point> nextDeadline() const;

private:
    std::uint64_t lastTurn = 0;
    std::map<std::uint64_t, RequestId> waiting;
    std::map<RequestId, std::uint64_t> turns; ///< of the waiting registrations
    std::map<RequestId, Clock::time_point> deadlines;
    std::set<std::pair<Clock::time_point, RequestId>> byDeadline;
};

} // namespace quillbox::dnssd
