#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/operations/engine_link.h"
#include "platform/dnssd/operations/record_kinds.h"
#include "platform/values/backoff.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace quillbox::dnssd {

/// How long to wait for an engine to report Settled. After that a query counts as settled.
inline constexpr std::chrono::milliseconds kSettlingLimit{3000};

/// How long records stay valid after the engine came back, while the new one finds none. Silence
/// for a second proves nothing: answers get lost. By then Avahi has sent six queries, after 0, 1,
/// 3, 7, 15 and 31 seconds.
inline constexpr std::chrono::seconds kSilenceLimit{40};

/// How many records one query keeps; any more are ignored.
inline constexpr std::size_t kMaximumRecords = 64;

/// Is notified when the answer of a query has changed. Must only take note of it, and not
/// release the query inside the call.
class QueryObserver {
public:
    virtual void queryChanged() = 0;

protected:
    ~QueryObserver() = default;
};

/// A query for records that is active for as long as the object exists, with the records found.
/// When the engine goes down the records are kept; once the query has been sent again, they are
/// replaced by the first answer, or dropped after `kSilenceLimit` without one.
template <class Kind>
class RecordQuery final : public std::enable_shared_from_this<RecordQuery<Kind>>,
                          private EngineLink::Client {
public:
    using Subject = typename Kind::Subject;

    struct Record {
        Sighting sighting;
        typename Kind::Value value;
    };

    RecordQuery(EngineLink& engineLink, DispatchQueue& centerQueue, Subject asked);
    ~RecordQuery();
    RecordQuery(const RecordQuery&) = delete;
    RecordQuery& operator=(const RecordQuery&) = delete;

    /// Called once, when the object is held by a shared pointer.
    void start();

    void addObserver(QueryObserver& observer) { observers.push_back(&observer); }
    /// Undoes one `addObserver`.
    void removeObserver(QueryObserver& observer);

    /// In the order found; at most `kMaximumRecords`.
    const std::vector<Record>& records() const { return found; }

    /// Whether the initial answer period is over.
    bool isSettled() const { return settled; }

    /// Whether the last record was lost or dropped and none has been found since. Keeps its value
    /// while the engine is down.
    bool isLost() const { return lost; }

    /// Whether it is lost only because nobody answered after the engine came back.
    bool isSilent() const { return silent; }

private:
    void engineUp() override;
    void engineDown(std::error_code error) override;
    void engineEvent(const Event& event) override;

    void ask();
    void add(Record record);
    void remove(const Record& record);
    void settle();
    void forget();
    void retryLater();
    void notify();

    EngineLink& link;
    DispatchQueue& queue;
    const Subject subject;
    std::vector<QueryObserver*> observers;
    RequestId id = 0;
    std::vector<Record> found;
    bool isStale = false; ///< `found` is from an earlier query
    bool settled = false;
    bool lost = false;
    bool silent = false;
    Backoff backoff{kShortestPause, kLongestPause};
};

using LocationQuery = RecordQuery<LocationKind>;
using AddressQuery = RecordQuery<AddressKind>;

/// Sends each query once, however many callers share it. Must outlive the queries that it
/// returns.
template <class Kind> class QueryPool final {
public:
    using Query = RecordQuery<Kind>;

    QueryPool(EngineLink& engineLink, DispatchQueue& centerQueue)
        : link(engineLink), queue(centerQueue)
    {
    }
    QueryPool(const QueryPool&) = delete;
    QueryPool& operator=(const QueryPool&) = delete;

    /// The query ends when the last holder releases it.
    std::shared_ptr<Query> query(typename Kind::Subject subject);

private:
    EngineLink& link;
    DispatchQueue& queue;
    std::map<std::string, std::weak_ptr<Query>> queries;
};

using LocationPool = QueryPool<LocationKind>;
using AddressPool = QueryPool<AddressKind>;

extern template class RecordQuery<LocationKind>;
extern template class RecordQuery<AddressKind>;
extern template class QueryPool<LocationKind>;
extern template class QueryPool<AddressKind>;

} // namespace quillbox::dnssd
