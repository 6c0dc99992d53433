#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/engine_link.h"
#include "platform/dnssd/growing_pause.h"
#include "platform/dnssd/record_kinds.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace quillbox::dnssd {

/// How long an engine may take to say that the network has had its time to answer. Then it is
/// taken as said.
inline constexpr std::chrono::milliseconds kSettlingLimit{3000};

/// How many records one question keeps; the others are left out.
inline constexpr std::size_t kMaximumRecords = 64;

/// Learns that the answer of a question has changed. Only notes it: the question is not let go in
/// the call.
class QuestionObserver {
public:
    virtual void questionChanged() = 0;

protected:
    ~QuestionObserver() = default;
};

/// A question for records that stands for as long as the object lives, and the records found. When
/// the engine goes the records stay; once the question has been asked anew, what is found first, or
/// nothing at the end of the network's time, takes their place.
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
    /// Takes back one `addObserver`.
    void removeObserver(QuestionObserver& observer);

    /// In the order in which they were found; `kMaximumRecords` at the most.
    const std::vector<Record>& records() const { return found; }

    /// Whether the network has had its time to answer.
    bool isSettled() const { return settled; }

    /// Whether the last record was lost and none has been found since. Stands while the engine is
    /// away.
    bool isLost() const { return lost; }

private:
    void engineUp() override;
    void engineDown(std::error_code error) override;
    void engineEvent(const Event& event) override;

    void ask();
    void add(Record record);
    void remove(const Record& record);
    void settle();
    void retryLater();
    void notify();

    EngineLink& link;
    DispatchQueue& queue;
    const Subject subject;
    std::vector<QuestionObserver*> observers;
    AskId id = 0;
    std::vector<Record> found;
    bool isStale = false; ///< `found` was told by an engine that is no longer asked
    bool settled = false;
    bool lost = false;
    GrowingPause pause{GrowingPause::First::Shortest};
};

using LocationQuestion = RecordQuestion<LocationKind>;
using AddressQuestion = RecordQuestion<AddressKind>;

/// Asks each question once, however many want to know. It outlives the questions that it gave.
template <class Kind> class QuestionPool final {
public:
    using Question = RecordQuestion<Kind>;

    QuestionPool(EngineLink& engineLink, DispatchQueue& centerQueue)
        : link(engineLink), queue(centerQueue)
    {
    }
    QuestionPool(const QuestionPool&) = delete;
    QuestionPool& operator=(const QuestionPool&) = delete;

    /// The question stands until the last holder lets it go.
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
