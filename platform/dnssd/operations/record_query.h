#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/operations/engine_link.h"
#include "platform/values/backoff.h"

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <utility>
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
template <class Asked>
class RecordQuery final : public std::enable_shared_from_this<RecordQuery<Asked>>,
                          private EngineLink::Client {
public:
    /// Every record that is kept has been found.
    using Record = Answer<typename Asked::Value>;

    RecordQuery(EngineLink& engineLink, DispatchQueue& centerQueue, Asked asked)
        : Client(engineLink), queue(centerQueue), request(std::move(asked))
    {
    }

    /// Called once, when the object is held by a shared pointer.
    void start() { this->readState(); }

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
    void engineDown(std::error_code /*error*/) override { notify(); }
    void engineEvent(const Event& event) override;

    void ask();
    void add(const Record& record);
    void remove(const Record& record);
    void settle();
    void forget();
    void retryLater();
    void notify();
    /// Calls `action` after `delay`, unless there is another request by then.
    void after(std::chrono::milliseconds delay, void (RecordQuery::*action)());

    DispatchQueue& queue;
    const Asked request;
    std::vector<QueryObserver*> observers;
    std::vector<Record> found;
    bool isStale = false; ///< `found` is from an earlier query
    bool settled = false;
    bool lost = false;
    bool silent = false;
    Backoff backoff{kShortestPause, kLongestPause};
};

using LocationQuery = RecordQuery<LocationRequest>;
using AddressQuery = RecordQuery<AddressRequest>;

/// Whether two SRV records say the same.
bool isSame(const HostEndpoint& a, const HostEndpoint& b);

/// Sends each query once, however many callers share it. Must outlive the queries that it
/// returns.
template <class Asked> class QueryPool final {
public:
    using Query = RecordQuery<Asked>;

    QueryPool(EngineLink& engineLink, DispatchQueue& centerQueue)
        : link(engineLink), queue(centerQueue)
    {
    }
    QueryPool(const QueryPool&) = delete;
    QueryPool& operator=(const QueryPool&) = delete;

    /// The query ends when the last holder releases it. `observer` is notified for as long as what
    /// this returns is held.
    std::shared_ptr<const Query> query(const Asked& request, QueryObserver& observer);

private:
    std::shared_ptr<Query> sharedQuery(const Asked& request);

    EngineLink& link;
    DispatchQueue& queue;
    std::map<std::string, std::weak_ptr<Query>> queries;
};

using LocationPool = QueryPool<LocationRequest>;
using AddressPool = QueryPool<AddressRequest>;

extern template class RecordQuery<LocationRequest>;
extern template class RecordQuery<AddressRequest>;
extern template class QueryPool<LocationRequest>;
extern template class QueryPool<AddressRequest>;

} // namespace quillbox::dnssd
