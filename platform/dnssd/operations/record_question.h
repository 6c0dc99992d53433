#pragma once

#include "platform/backoff.h"
#include "platform/dispatch_queue.h"
#include "platform/dnssd/operations/engine_link.h"
#include "platform/dnssd/operations/record_kinds.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace quillbox::dnssd {

/// How long to wait for an engine to report Settled. After that a question counts as settled.
inline constexpr std::chrono::milliseconds kSettlingLimit{3000};

/// How long records stay valid after the engine came back, while the new one finds none. Silence
/// for a second proves nothing: answers get lost. By then Avahi has sent six queries, after 0, 1,
/// 3, 7, 15 and 31 seconds.
inline constexpr std::chrono::seconds kSilenceLimit{40};

/// How many records one question keeps; any more are ignored.
inline constexpr std::size_t kMaximumRecords = 64;

/// Is notified when the answer of a question has changed. Must only take note of it, and not
/// release the question inside the call.
class QuestionObserver {
public:
    virtual void questionChanged() = 0;

protected:
    ~QuestionObserver() = default;
};

/// A query for records that is active for as long as the object exists, with the records found.
/// When the engine goes down the records are kept; once the query has been sent again, they are
/// replaced by the first answer, or dropped after `kSilenceLimit` without one.
template <class Kind>
class RecordQuestion final : public std::enable_shared_from_this<RecordQuestion<Kind>>,
                             private EngineLink::Client {
public:
    using Subject = typename Kind::Subject;

    struct Record {
        Sighting sighting;
        typename Kind::Value value;
    };

    RecordQuestion(EngineLink& engineLink, DispatchQueue& centerQueue, Subject asked);
    ~RecordQuestion();
    RecordQuestion(const RecordQuestion&) = delete;
    RecordQuestion& operator=(const RecordQuestion&) = delete;

    /// Called once, when the object is held by a shared pointer.
    void start();

    void addObserver(QuestionObserver& observer) { observers.push_back(&observer); }
    /// Undoes one `addObserver`.
    void removeObserver(QuestionObserver& observer);

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
    std::vector<QuestionObserver*> observers;
    AskId id = 0;
    std::vector<Record> found;
    bool isStale = false; ///< `found` is from an earlier query
    bool settled = false;
    bool lost = false;
    bool silent = false;
    Backoff backoff{kShortestPause, kLongestPause};
};

using LocationQuestion = RecordQuestion<LocationKind>;
using AddressQuestion = RecordQuestion<AddressKind>;

/// Sends each query once, however many callers share it. Must outlive the questions that it
/// returns.
template <class Kind> class QuestionPool final {
public:
    using Question = RecordQuestion<Kind>;

    QuestionPool(EngineLink& engineLink, DispatchQueue& centerQueue)
        : link(engineLink), queue(centerQueue)
    {
    }
    QuestionPool(const QuestionPool&) = delete;
    QuestionPool& operator=(const QuestionPool&) = delete;

    /// The question ends when the last holder releases it.
    std::shared_ptr<Question> ask(typename Kind::Subject subject);

private:
    EngineLink& link;
    DispatchQueue& queue;
    std::map<std::string, std::weak_ptr<Question>> questions;
};

using LocationPool = QuestionPool<LocationKind>;
using AddressPool = QuestionPool<AddressKind>;

extern template class RecordQuestion<LocationKind>;
extern template class RecordQuestion<AddressKind>;
extern template class QuestionPool<LocationKind>;
extern template class QuestionPool<AddressKind>;

} // namespace quillbox::dnssd
