#pragma once

#include "platform/dnssd/engine/messages.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace quillbox::dnssd {

/// Decides which registrations are published next, in request order, at most `kRegistrationsAtOnce`
/// at a time. Established ones are not in it. Times are monotonic.
class PublicationQueue final {
public:
    using Clock = std::chrono::steady_clock;

    /// Queues a registration. No effect if it is waiting or underway.
    void wait(RequestId id)
    {
        if (!isUnderway(id) && !isWaiting(id))
            waiting.push_back(id);
    }

    /// Takes the next registration out of the queue; none while the maximum number is underway.
    std::optional<RequestId> next()
    {
        if (waiting.empty() || deadlines.size() >= kRegistrationsAtOnce)
            return std::nullopt;
        const RequestId id = waiting.front();
        waiting.erase(waiting.begin());
        return id;
    }

    /// Marks a registration as underway, or underway again; it is overdue at `deadline`.
    void begin(RequestId id, Clock::time_point deadline)
    {
        leave(id);
        deadlines[id] = deadline;
    }

    /// Removes a registration, whether it is waiting or underway.
    void leave(RequestId id)
    {
        std::erase(waiting, id);
        deadlines.erase(id);
    }

    bool isWaiting(RequestId id) const { return std::ranges::count(waiting, id) > 0; }
    bool isUnderway(RequestId id) const { return deadlines.contains(id); }

    /// Removes and returns the registration that has been overdue longest.
    std::optional<RequestId> takeOverdue(Clock::time_point now)
    {
        const auto first = earliest();
        if (first == deadlines.end() || first->second > now)
            return std::nullopt;
        const RequestId id = first->first;
        deadlines.erase(first);
        return id;
    }

    /// When the next registration becomes overdue.
    std::optional<Clock::time_point> nextDeadline() const
    {
        const auto first = earliest();
        return first == deadlines.end() ? std::nullopt : std::optional(first->second);
    }

private:
    using Deadlines = std::map<RequestId, Clock::time_point>;

    Deadlines::const_iterator earliest() const
    {
        return std::ranges::min_element(deadlines, {}, &Deadlines::value_type::second);
    }

    std::vector<RequestId> waiting;
    Deadlines deadlines; ///< of those underway
};

} // namespace quillbox::dnssd
