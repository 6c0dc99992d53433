#pragma once

#include "platform/traffic.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace quillbox {

/// Counts the traffic of one listener, and of all listeners along with it. Thread-safe, and cheap
/// enough for every chunk.
class TrafficCounter final {
public:
    TrafficCounter() = default;

    /// What is counted here is counted in `sum` as well.
    explicit TrafficCounter(std::shared_ptr<TrafficCounter> sum) : sum_(std::move(sum)) {}

    TrafficCounter(const TrafficCounter&) = delete;
    TrafficCounter& operator=(const TrafficCounter&) = delete;

    void noteOpened();
    void noteClosed();
    void noteReceived(std::size_t bytes);
    void noteSent(std::size_t bytes);

    /// The numbers of one moment each, not all of the same one.
    Traffic traffic() const;

private:
    struct Counts {
        std::atomic<std::uint64_t> sessions = 0;
        std::atomic<std::uint64_t> sessionsInAll = 0;
        std::atomic<std::uint64_t> bytesReceived = 0;
        std::atomic<std::uint64_t> bytesSent = 0;
    };

    template <typename Count> void note(Count count)
    {
        count(counts_);
        if (sum_)
            count(sum_->counts_);
    }

    const std::shared_ptr<TrafficCounter> sum_;
    Counts counts_;
};

/// One accepted connection, counted as open while this lives.
class CountedSession final {
public:
    explicit CountedSession(std::shared_ptr<TrafficCounter> counter) : counter_(std::move(counter))
    {
        counter_->noteOpened();
    }
    ~CountedSession() { counter_->noteClosed(); }

    CountedSession(const CountedSession&) = delete;
    CountedSession& operator=(const CountedSession&) = delete;

    void noteReceived(std::size_t bytes) { counter_->noteReceived(bytes); }
    void noteSent(std::size_t bytes) { counter_->noteSent(bytes); }

private:
    const std::shared_ptr<TrafficCounter> counter_;
};

/// Knows the counters of the listeners that are open, and the sum of all that ever were.
/// Thread-safe.
class TrafficLedger final {
public:
    /// A counter for a listener of that name. It is in the report for as long as somebody holds it.
    std::shared_ptr<TrafficCounter> add(std::string name);

    TrafficReport report() const;

private:
    struct Entry {
        std::string name;
        std::weak_ptr<TrafficCounter> counter;
    };

    const std::shared_ptr<TrafficCounter> sum_ = std::make_shared<TrafficCounter>();
    mutable std::mutex mutex_;
    std::vector<Entry> entries_; ///< in the order in which they came
};

} // namespace quillbox
