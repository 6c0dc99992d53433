#include "platform/tcp/traffic_ledger.h"

#include <utility>

namespace quillbox {

namespace {

// Each number stands for itself: no other memory is read by what it says.
constexpr auto kOrder = std::memory_order_relaxed;

} // namespace

void TrafficCounter::noteOpened()
{
    sessions_.fetch_add(1, kOrder);
    sessionsInAll_.fetch_add(1, kOrder);
    if (sum_)
        sum_->noteOpened();
}

void TrafficCounter::noteClosed()
{
    sessions_.fetch_sub(1, kOrder);
    if (sum_)
        sum_->noteClosed();
}

void TrafficCounter::noteReceived(std::size_t bytes)
{
    bytesReceived_.fetch_add(bytes, kOrder);
    if (sum_)
        sum_->noteReceived(bytes);
}

void TrafficCounter::noteSent(std::size_t bytes)
{
    bytesSent_.fetch_add(bytes, kOrder);
    if (sum_)
        sum_->noteSent(bytes);
}

Traffic TrafficCounter::traffic() const
{
    return {.sessions = sessions_.load(kOrder),
            .sessionsInAll = sessionsInAll_.load(kOrder),
            .bytesReceived = bytesReceived_.load(kOrder),
            .bytesSent = bytesSent_.load(kOrder)};
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
