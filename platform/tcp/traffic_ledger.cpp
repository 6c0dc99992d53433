#include "platform/tcp/traffic_ledger.h"

namespace quillbox {

Traffic TrafficCounter::traffic() const
{
    return {.sessions = sessions,
            .sessionsInAll = sessionsInAll,
            .bytesReceived = bytesReceived,
            .bytesSent = bytesSent};
}

std::shared_ptr<TrafficCounter> TrafficLedger::add(std::string name)
{
    auto counter = std::make_shared<TrafficCounter>();
    counter->total = total_;
    const std::lock_guard lock(mutex_);
    std::erase_if(entries_, [](const Entry& entry) { return entry.counter.expired(); });
    entries_.push_back({.name = std::move(name), .counter = counter});
    return counter;
}

TrafficReport TrafficLedger::report() const
{
    TrafficReport report{.total = total_->traffic(), .listeners = {}};
    const std::lock_guard lock(mutex_);
    for (const Entry& entry : entries_) {
        if (const auto counter = entry.counter.lock())
            report.listeners[entry.name] = counter->traffic();
    }
    return report;
}

} // namespace quillbox
