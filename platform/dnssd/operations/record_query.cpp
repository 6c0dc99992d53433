#include "platform/dnssd/operations/record_query.h"

#include "platform/dnssd/operations/names.h"

#include <algorithm>
#include <utility>

namespace quillbox::dnssd {

std::string LocationKind::key(const Subject& subject)
{
    // Names contain no zero byte, so different services have different keys.
    return folded(subject.name) + '\0' + folded(subject.type) + '\0' + folded(subject.domain);
}

Request LocationKind::request(const Subject& subject)
{
    return LocationRequest{0, subject.name, subject.type, subject.domain};
}

bool LocationKind::isSame(const Value& a, const Value& b)
{
    return a.port == b.port && isSameName(a.hostName, b.hostName);
}

std::string AddressKind::key(const Subject& subject)
{
    return (subject.family == Family::IPv4 ? '4' : '6') + folded(subject.hostName);
}

Request AddressKind::request(const Subject& subject)
{
    return AddressRequest{0, subject.hostName, subject.family};
}

template <class Kind>
RecordQuery<Kind>::RecordQuery(EngineLink& engineLink, DispatchQueue& centerQueue, Subject asked)
    : link(engineLink), queue(centerQueue), subject(std::move(asked))
{
    link.attach(*this);
}

template <class Kind> RecordQuery<Kind>::~RecordQuery()
{
    link.end(id);
    link.detach(*this);
}

template <class Kind> void RecordQuery<Kind>::start()
{
    if (link.isUp())
        ask();
}

template <class Kind> void RecordQuery<Kind>::removeObserver(QueryObserver& observer)
{
    if (const auto one = std::ranges::find(observers, &observer); one != observers.end())
        observers.erase(one);
}

template <class Kind> void RecordQuery<Kind>::engineUp()
{
    isStale = true;
    settled = false;
    backoff.reset();
    ask();
    notify();
}

template <class Kind> void RecordQuery<Kind>::engineDown(std::error_code /*error*/)
{
    id = 0;
}

template <class Kind> void RecordQuery<Kind>::engineEvent(const Event& event)
{
    if (const auto* answer = std::get_if<typename Kind::Found>(&event))
        add({answer->sighting, Kind::value(*answer)});
    else if (const auto* loss = std::get_if<typename Kind::Lost>(&event))
        remove({loss->sighting, Kind::value(*loss)});
    else if (std::holds_alternative<Settled>(event))
        settle();
    else if (std::holds_alternative<Failed>(event))
        retryLater();
}

template <class Kind> void RecordQuery<Kind>::ask()
{
    id = link.send(*this, Kind::request(subject));
    queue.asyncAfter(kSettlingLimit, [weak = this->weak_from_this(), asked = id] {
        if (const auto self = weak.lock(); self && self->id == asked && !self->settled)
            self->settle();
    });
    if (found.empty())
        return;
    queue.asyncAfter(kSilenceLimit, [weak = this->weak_from_this(), asked = id] {
        if (const auto self = weak.lock(); self && self->id == asked)
            self->forget();
    });
}

template <class Kind> void RecordQuery<Kind>::add(Record record)
{
    if (std::exchange(isStale, false))
        found.clear();
    lost = silent = false;
    const auto isThis = [&record](const Record& other) {
        return other.sighting == record.sighting && Kind::isSame(other.value, record.value);
    };
    if (found.size() < kMaximumRecords && std::ranges::none_of(found, isThis))
        found.push_back(std::move(record));
    notify();
}

template <class Kind> void RecordQuery<Kind>::remove(const Record& record)
{
    if (isStale)
        return;
    const auto removed = std::erase_if(found, [&record](const Record& other) {
        return other.sighting == record.sighting && Kind::isSame(other.value, record.value);
    });
    if (removed == 0)
        return;
    lost = found.empty();
    notify();
}

template <class Kind> void RecordQuery<Kind>::settle()
{
    settled = true;
    backoff.reset();
    notify();
}

template <class Kind> void RecordQuery<Kind>::forget()
{
    if (!std::exchange(isStale, false))
        return;
    found.clear();
    lost = silent = true;
    notify();
}

template <class Kind> void RecordQuery<Kind>::retryLater()
{
    link.end(id);
    id = 0;
    // Known records are kept until the retry, and the query counts as settled so that callers do
    // not wait for it.
    isStale = true;
    settled = true;
    queue.asyncAfter(backoff.next(), [weak = this->weak_from_this()] {
        if (const auto self = weak.lock(); self && self->id == 0 && self->link.isUp())
            self->ask();
    });
    notify();
}

template <class Kind> void RecordQuery<Kind>::notify()
{
    const auto watching = observers;
    for (QueryObserver* observer : watching)
        observer->queryChanged();
}

template <class Kind>
std::shared_ptr<RecordQuery<Kind>> QueryPool<Kind>::query(typename Kind::Subject subject)
{
    const std::string key = Kind::key(subject);
    auto& entry = queries[key];
    if (auto standing = entry.lock())
        return standing;
    std::shared_ptr<Query> query(new Query(link, queue, std::move(subject)),
                                 [this, key](Query* ended) {
                                     queries.erase(key);
                                     delete ended;
                                 });
    entry = query;
    query->start();
    return query;
}

template class RecordQuery<LocationKind>;
template class RecordQuery<AddressKind>;
template class QueryPool<LocationKind>;
template class QueryPool<AddressKind>;

} // namespace quillbox::dnssd
