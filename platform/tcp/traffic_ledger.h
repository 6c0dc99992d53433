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

/// Counts the traffic of one listener, and adds it to a total. Thread-safe, and cheap enough to be
/// called for every chunk.
class TrafficCounter final {
public:
    TrafficCounter() = default;

    /// Everything counted here is counted in `sum` as well.
    explicit TrafficCounter(std::shared_ptr<TrafficCounter> sum) : sum_(std::move(sum)) {}

    TrafficCounter(const TrafficCounter&) = delete;
    TrafficCounter& operator=(const TrafficCounter&) = delete;

    void noteOpened();
    void noteClosed();
    void noteReceived(std::size_t bytes);
    void noteSent(std::size_t bytes);

    /// Each number is current, but they are not one consistent snapshot.
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

/// An accepted connection, counted as open during the lifetime of this object.
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

/// The counters of all open listeners, and the total of all listeners so far. Thread-safe.
class TrafficLedger final {
public:
    /// Returns a counter for a listener of that name. It is part of the report as long as there are
    /// references to it.
    std::shared_ptr<TrafficCounter> add(std::string name);

    TrafficReport report() const;

private:
    struct Entry {
        std::string name;
        std::weak_ptr<TrafficCounter> counter;
    };

    const std::shared_ptr<TrafficCounter> sum_ = std::make_shared<TrafficCounter>();
    mutable std::mutex mutex_;
    std::vector<Entry> entries_; ///< in the order in which they were added
};

} // namespace quillbox
