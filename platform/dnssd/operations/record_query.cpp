#include "platform/dnssd/operations/record_query.h"

#include "platform/dnssd/operations/names.h"

#include <algorithm>
#include <type_traits>

namespace quillbox::dnssd {

namespace {

/// Requests with the same key share one query.
std::string keyOf(const LocationRequest& request)
{
    const auto& [name, type, domain] = request.service;
    // Names contain no zero byte, so different services have different keys.
    return folded(name) + '\0' + folded(type) + '\0' + folded(domain);
}

std::string keyOf(const AddressRequest& request)
{
    return (request.family == Family::IPv4 ? '4' : '6') + folded(request.hostName);
}

/// Whether both answers are about the same record, seen at the same place.
template <class Value> auto sameAs(const Answer<Value>& record)
{
    return [&record](const Answer<Value>& other) {
        if constexpr (std::is_same_v<Value, HostEndpoint>)
            return other.sighting == record.sighting && isSame(other.value, record.value);
        else
            return other.sighting == record.sighting && other.value == record.value;
    };
}

} // namespace

bool isSame(const HostEndpoint& a, const HostEndpoint& b)
{
    return a.port == b.port && isSameName(a.host, b.host);
}

template <class Asked> void RecordQuery<Asked>::removeObserver(QueryObserver& observer)
{
    observers.erase(std::ranges::find(observers, &observer));
}

template <class Asked> void RecordQuery<Asked>::engineUp()
{
    isStale = true;
    settled = false;
    backoff.reset();
    ask();
    notify();
}

template <class Asked> void RecordQuery<Asked>::engineEvent(const Event& event)
{
    if (const auto* answer = std::get_if<Record>(&event))
        answer->change == Change::Found ? add(*answer) : remove(*answer);
    else if (std::holds_alternative<Settled>(event))
        settle();
    else if (std::holds_alternative<Failed>(event))
        retryLater();
}

template <class Asked> void RecordQuery<Asked>::ask()
{
    if (!this->link.isUp())
        return;
    this->send(request);
    after(kSettlingLimit, &RecordQuery::settle);
    if (!found.empty())
        after(kSilenceLimit, &RecordQuery::forget);
}

template <class Asked> void RecordQuery<Asked>::add(const Record& record)
{
    if (std::exchange(isStale, false))
        found.clear();
    lost = silent = false;
    if (found.size() < kMaximumRecords && std::ranges::none_of(found, sameAs(record)))
        found.push_back(record);
    notify();
}

template <class Asked> void RecordQuery<Asked>::remove(const Record& record)
{
    if (isStale || std::erase_if(found, sameAs(record)) == 0)
        return;
    lost = found.empty();
    notify();
}

template <class Asked> void RecordQuery<Asked>::settle()
{
    settled = true;
    backoff.reset();
    notify();
}

template <class Asked> void RecordQuery<Asked>::forget()
{
    if (!std::exchange(isStale, false))
        return;
    found.clear();
    lost = silent = true;
    notify();
}

template <class Asked> void RecordQuery<Asked>::retryLater()
{
    this->end();
    // Known records are kept until the retry, and the query counts as settled so that callers do
    // not wait for it.
    isStale = true;
    settled = true;
    after(backoff.next(), &RecordQuery::ask);
    notify();
}

template <class Asked> void RecordQuery<Asked>::notify()
{
    const auto watching = observers;
    for (QueryObserver* observer : watching)
        observer->queryChanged();
}

template <class Asked>
void RecordQuery<Asked>::after(std::chrono::milliseconds delay, void (RecordQuery::*action)())
{
    queue.asyncAfter(delay, [weak = this->weak_from_this(), asked = this->id, action] {
        if (const auto self = weak.lock(); self && self->id == asked)
            ((*self).*action)();
    });
}

template <class Asked>
std::shared_ptr<const RecordQuery<Asked>> QueryPool<Asked>::query(const Asked& request,
                                                                  QueryObserver& observer)
{
    auto shared = sharedQuery(request);
    shared->addObserver(observer);
    return {shared.get(), [shared, &observer](const Query*) { shared->removeObserver(observer); }};
}

template <class Asked>
std::shared_ptr<RecordQuery<Asked>> QueryPool<Asked>::sharedQuery(const Asked& request)
{
    const std::string key = keyOf(request);
    auto& entry = queries[key];
    if (auto active = entry.lock())
        return active;
    std::shared_ptr<Query> query(new Query(link, queue, request), [this, key](Query* ended) {
        queries.erase(key);
        delete ended;
    });
    entry = query;
    query->start();
    return query;
}

template class RecordQuery<LocationRequest>;
template class RecordQuery<AddressRequest>;
template class QueryPool<LocationRequest>;
template class QueryPool<AddressRequest>;

} // namespace quillbox::dnssd
