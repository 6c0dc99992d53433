#include "platform/tcp/traffic_ledger.h"

#include <utility>

namespace quillbox {

namespace {

// The counters are independent: no access to other memory is synchronized by them.
constexpr auto kOrder = std::memory_order_relaxed;

} // namespace

void TrafficCounter::noteOpened()
{
    note([](Counts& counts) {
        counts.sessions.fetch_add(1, kOrder);
        counts.sessionsInAll.fetch_add(1, kOrder);
    });
}

void TrafficCounter::noteClosed()
{
    note([](Counts& counts) { counts.sessions.fetch_sub(1, kOrder); });
}

void TrafficCounter::noteReceived(std::size_t bytes)
{
    note([bytes](Counts& counts) { counts.bytesReceived.fetch_add(bytes, kOrder); });
}

void TrafficCounter::noteSent(std::size_t bytes)
{
    note([bytes](Counts& counts) { counts.bytesSent.fetch_add(bytes, kOrder); });
}

Traffic TrafficCounter::traffic() const
{
    return {.sessions = counts_.sessions.load(kOrder),
            .sessionsInAll = counts_.sessionsInAll.load(kOrder),
            .bytesReceived = counts_.bytesReceived.load(kOrder),
            .bytesSent = counts_.bytesSent.load(kOrder)};
}

std::shared_ptr<TrafficCounter> TrafficLedger::add(std::string name)
{
    auto counter = std::make_shared<TrafficCounter>(sum_);
    const std::lock_guard lock(mutex_);
    std::erase_if(entries_, [](const Entry& entry) { return entry.counter.expired(); });
    entries_.push_back({.name = std::move(name), .counter = counter});
    return counter;
}

TrafficReport TrafficLedger::report() const
{
    TrafficReport report{.total = sum_->traffic(), .listeners = {}};
    const std::lock_guard lock(mutex_);
    for (const Entry& entry : entries_) {
        if (const auto counter = entry.counter.lock())
            report.listeners[entry.name] = counter->traffic();
    }
    return report;
}

} // namespace quillbox
