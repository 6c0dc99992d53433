#pragma once

#include "platform/dnssd/messages.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>

namespace quillbox::dnssd {

/// Whose turn it is to be published (`kRegistrationsAtOnce`): in the order of asking. A call costs
/// the logarithm of the number of those who wait or are underway, and nothing for all that are
/// established. Times are of the monotonic clock.
class PublicationQueue final {
public:
    using Clock = std::chrono::steady_clock;

    /// Has no effect on one that waits already, or is underway.
    void wait(AskId id);

    /// Takes the one whose turn it is out of the queue; none while as many are underway as may be.
    std::optional<AskId> next();

    /// It is underway from now on, or again, and is overdue at `deadline`.
    void begin(AskId id, Clock::time_point deadline);

    /// It neither waits nor is underway any more.
    void leave(AskId id);

    bool isWaiting(AskId id) const { return turns.contains(id); }
    bool isUnderway(AskId id) const { return deadlines.contains(id); }

    /// Takes the first one out that is overdue.
    std::optional<AskId> takeOverdue(Clock::time_point now);

    /// When the first one is overdue.
    std::optional<Clock::time_point> nextDeadline() const;

private:
    std::uint64_t lastTurn = 0;
    std::map<std::uint64_t, AskId> waiting;
    std::map<AskId, std::uint64_t> turns; ///< of those who wait
    std::map<AskId, Clock::time_point> deadlines;
    std::set<std::pair<Clock::time_point, AskId>> byDeadline;
};

} // namespace quillbox::dnssd
