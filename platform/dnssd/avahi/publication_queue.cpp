#include "platform/dnssd/avahi/publication_queue.h"

namespace quillbox::dnssd {

void PublicationQueue::wait(RequestId id)
{
    if (!isUnderway(id) && turns.try_emplace(id, lastTurn + 1).second)
        waiting.emplace(++lastTurn, id);
}

std::optional<RequestId> PublicationQueue::next()
{
    if (waiting.empty() || deadlines.size() >= kRegistrationsAtOnce)
        return std::nullopt;
    const RequestId id = waiting.begin()->second;
    leave(id);
    return id;
}

void PublicationQueue::begin(RequestId id, Clock::time_point deadline)
{
    leave(id);
    deadlines.emplace(id, deadline);
    byDeadline.emplace(deadline, id);
}

void PublicationQueue::leave(RequestId id)
{
    if (const auto turn = turns.find(id); turn != turns.end()) {
        waiting.erase(turn->second);
        turns.erase(turn);
    }
    if (const auto deadline = deadlines.find(id); deadline != deadlines.end()) {
        byDeadline.erase({deadline->second, id});
        deadlines.erase(deadline);
    }
}

std::optional<RequestId> PublicationQueue::takeOverdue(Clock::time_point now)
{
    if (byDeadline.empty() || byDeadline.begin()->first > now)
        return std::nullopt;
    const RequestId id = byDeadline.begin()->second;
    leave(id);
    return id;
}

std::optional<PublicationQueue::Clock::time_point> PublicationQueue::nextDeadline() const
{
    if (byDeadline.empty())
        return std::nullopt;
    return byDeadline.begin()->first;
}

} // namespace quillbox::dnssd
