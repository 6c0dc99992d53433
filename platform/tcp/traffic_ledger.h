#pragma once

#include "platform/values/traffic.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace quillbox {

/// The counts of one listener, or of all. Any thread may read them at any time; each number is
/// current, but they are not one consistent snapshot.
struct TrafficCounter {
    std::atomic<std::uint64_t> sessions = 0;
    std::atomic<std::uint64_t> sessionsInAll = 0;
    std::atomic<std::uint64_t> bytesReceived = 0;
    std::atomic<std::uint64_t> bytesSent = 0;

    /// That of all listeners, in which everything is counted as well; null for itself.
    std::shared_ptr<TrafficCounter> total = nullptr;

    Traffic traffic() const
    {
        return {.sessions = sessions,
                .sessionsInAll = sessionsInAll,
                .bytesReceived = bytesReceived,
                .bytesSent = bytesSent};
    }
};

/// An accepted connection, counted as open until this object is destroyed, or moved from. Cheap
/// enough to be called for every chunk. Default-constructed, it counts nothing.
class CountedSession final {
public:
    CountedSession() = default;
    explicit CountedSession(std::shared_ptr<TrafficCounter> counter) : counter_(std::move(counter))
    {
        add(&TrafficCounter::sessions, 1);
        add(&TrafficCounter::sessionsInAll, 1);
    }
    ~CountedSession() { end(); }

    CountedSession(CountedSession&&) = default;
    CountedSession(const CountedSession&) = delete;
    CountedSession& operator=(const CountedSession&) = delete;
    CountedSession& operator=(CountedSession&&) = delete;

    void end()
    {
        add(&TrafficCounter::sessions, ~std::uint64_t{0});
        counter_.reset();
    }

    void noteReceived(std::size_t bytes) { add(&TrafficCounter::bytesReceived, bytes); }
    void noteSent(std::size_t bytes) { add(&TrafficCounter::bytesSent, bytes); }

private:
    void add(std::atomic<std::uint64_t> TrafficCounter::*count, std::uint64_t number)
    {
        if (!counter_)
            return;
        // The counts are independent: no access to other memory is synchronized by them.
        for (auto* each : {counter_.get(), counter_->total.get()})
            (each->*count).fetch_add(number, std::memory_order_relaxed);
    }

    std::shared_ptr<TrafficCounter> counter_;
};

/// The counters of all open listeners, and the total of all listeners so far. Thread-safe.
class TrafficLedger final {
public:
    /// Returns a counter for a listener of that name. It is part of the report as long as there are
    /// references to it.
    std::shared_ptr<TrafficCounter> add(std::string name)
    {
        auto counter = std::make_shared<TrafficCounter>();
        counter->total = total_;
        const std::lock_guard lock(mutex_);
        std::erase_if(entries_, [](const Entry& entry) { return entry.counter.expired(); });
        entries_.push_back({.name = std::move(name), .counter = counter});
        return counter;
    }

    TrafficReport report() const
    {
        TrafficReport report{.total = total_->traffic(), .listeners = {}};
        const std::lock_guard lock(mutex_);
        for (const Entry& entry : entries_) {
            if (const auto counter = entry.counter.lock())
                report.listeners[entry.name] = counter->traffic();
        }
        return report;
    }

private:
    struct Entry {
        std::string name;
        std::weak_ptr<TrafficCounter> counter;
    };

    const std::shared_ptr<TrafficCounter> total_ = std::make_shared<TrafficCounter>();
    mutable std::mutex mutex_;
    std::vector<Entry> entries_; ///< in the order in which they were added
};

} // namespace quillbox
