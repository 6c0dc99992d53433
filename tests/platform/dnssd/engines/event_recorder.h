#pragma once

#include "platform/dnssd/engine/engine.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>
#include <variant>
#include <vector>

namespace quillbox::dnssd {

/// Records the events of an engine in order, and waits for them. Thread-safe.
class EventRecorder final {
public:
    using Clock = std::chrono::steady_clock;

    Engine::EventHandler handler()
    {
        return [this](const Event& event) {
            const std::lock_guard lock(mutex);
            events.push_back(event);
            changed.notify_all();
        };
    }

    std::vector<Event> all()
    {
        const std::lock_guard lock(mutex);
        return events;
    }

    void clear()
    {
        const std::lock_guard lock(mutex);
        events.clear();
    }

    template <class T> bool waitFor(std::chrono::milliseconds limit = std::chrono::seconds(8))
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, limit, [&] {
            return std::ranges::any_of(
                events, [](const Event& event) { return std::holds_alternative<T>(event); });
        });
    }

    bool waitForEvent(const Event& expected,
                      std::chrono::milliseconds limit = std::chrono::seconds(8))
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(
            lock, limit, [&] { return std::ranges::find(events, expected) != events.end(); });
    }

    /// Waits until there were that many.
    template <class T>
    bool waitForCount(std::size_t wanted, std::chrono::milliseconds limit = std::chrono::seconds(8))
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, limit, [&] { return countLocked<T>() >= wanted; });
    }

    template <class T> std::size_t count()
    {
        const std::lock_guard lock(mutex);
        return countLocked<T>();
    }

private:
    template <class T> std::size_t countLocked() const
    {
        return static_cast<std::size_t>(std::ranges::count_if(
            events, [](const Event& event) { return std::holds_alternative<T>(event); }));
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Event> events;
};

} // namespace quillbox::dnssd
