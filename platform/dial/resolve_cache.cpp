#include "platform/dial/resolve_cache.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace quillbox {

struct ResolveCache::Reader {
    std::shared_ptr<DispatchQueue> queue;
    Handler handler;
};

struct ResolveCache::Entry {
    std::unique_ptr<DnsSd::Subscription> subscription;
    std::shared_ptr<void> token; ///< of `subscription`; updates of earlier queries are ignored
    Clock::time_point askedAt;
    Clock::time_point usedAt;
    std::shared_ptr<const DnsSd::ResolveUpdate> known; ///< null while there is nothing to report
    std::vector<std::weak_ptr<Reader>> readers;

    void tell(const std::weak_ptr<Reader>& weak) const
    {
        if (const auto reader = weak.lock())
            reader->queue->async([weak, update = known] {
                if (const auto stillThere = weak.lock())
                    stillThere->handler(*update);
            });
    }

    bool hasReaders() const
    {
        return std::ranges::any_of(readers, [](const auto& each) { return !each.expired(); });
    }
};

ResolveCache::ResolveCache(DnsSd& dnsSd, std::shared_ptr<DispatchQueue> queue,
                           std::chrono::milliseconds freshTime, std::chrono::milliseconds keepTime)
    : dnsSd_(dnsSd), queue_(std::move(queue)), freshTime_(freshTime), keepTime_(keepTime)
{
}

ResolveCache::~ResolveCache() = default;

std::shared_ptr<void> ResolveCache::resolve(const Endpoint& endpoint,
                                            std::shared_ptr<DispatchQueue> queue, Handler handler)
{
    auto reader = std::make_shared<Reader>(Reader{std::move(queue), std::move(handler)});
    const auto now = Clock::now();
    const std::lock_guard lock(mutex_);
    if (entries_.empty())
        dropUnusedLater(keepTime_);
    const auto [position, isNew] = entries_.try_emplace(endpoint);
    auto& entry = position->second;
    entry.usedAt = now;
    if (isNew || now - entry.askedAt >= freshTime_)
        subscribe(endpoint, entry);
    if (entry.known)
        entry.tell(reader);
    std::erase_if(entry.readers, [](const auto& each) { return each.expired(); });
    entry.readers.push_back(reader);
    return reader;
}

void ResolveCache::subscribe(const Endpoint& endpoint, Entry& entry)
{
    // Cached addresses may be dialled, but are marked as not settled: no connection should give up
    // before the network has had time to answer again.
    if (entry.known && entry.known->addresses.empty())
        entry.known.reset();
    if (entry.known) {
        auto known = std::make_shared<DnsSd::ResolveUpdate>();
        known->addresses = entry.known->addresses;
        known->hosts = entry.known->hosts;
        entry.known = std::move(known);
    }
    // Equal active queries are merged, so a new one is sent only after the old one has ended.
    entry.subscription.reset();
    entry.askedAt = Clock::now();
    entry.token = std::make_shared<int>();
    auto handler = [weak = weak_from_this(), endpoint,
                    token = std::weak_ptr(entry.token)](const DnsSd::ResolveUpdate& update) {
        if (const auto self = weak.lock())
            self->take(endpoint, token, update);
    };
    entry.subscription = dnsSd_.resolve(endpoint, queue_, std::move(handler));
}

void ResolveCache::take(const Endpoint& endpoint, const std::weak_ptr<void>& token,
                        const DnsSd::ResolveUpdate& update)
{
    const std::lock_guard lock(mutex_);
    const auto position = entries_.find(endpoint);
    if (position == entries_.end() || token.expired())
        return;
    auto& entry = position->second;
    const bool isEmpty = update.addresses.empty();
    if (isEmpty && !update.error && !(update.isSettledIPv4 && update.isSettledIPv6))
        return; // no answer yet
    // While no engine is available, the last addresses stay valid, even those of an earlier query.
    auto known = std::make_shared<DnsSd::ResolveUpdate>(update);
    if (isEmpty && update.error && entry.known) {
        known->addresses = entry.known->addresses;
        known->hosts = entry.known->hosts;
    }
    entry.known = std::move(known);
    for (const auto& reader : entry.readers)
        entry.tell(reader);
}

void ResolveCache::dropUnusedLater(std::chrono::milliseconds pause)
{
    queue_->asyncAfter(pause, [weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->dropUnused();
    });
}

void ResolveCache::dropUnused()
{
    const std::lock_guard lock(mutex_);
    const auto now = Clock::now();
    auto next = keepTime_;
    std::erase_if(entries_, [&](const auto& keyAndEntry) {
        const auto& entry = keyAndEntry.second;
        const auto left =
            keepTime_ - std::chrono::floor<std::chrono::milliseconds>(now - entry.usedAt);
        if (!entry.hasReaders() && left.count() <= 0)
            return true;
        next = std::min(next, std::max(left, keepTime_ / 2));
        return false;
    });
    if (!entries_.empty())
        dropUnusedLater(next);
}

} // namespace quillbox
