#pragma once

#include "platform/values/text.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace quillbox {

/// The ports of this program's listeners. Thread-safe.
class OwnPorts final {
public:
    /// The port is one of the program's own until the returned reference is dropped, which must
    /// happen after it was closed and before this object is destroyed. `service` is the name of the
    /// service that has the port; empty if none.
    [[nodiscard]] std::shared_ptr<void> add(std::uint16_t port, std::string service = {})
    {
        const std::lock_guard lock(mutex_);
        const auto entry = ports_.insert(ports_.end(), {port, std::move(service), {}});
        return {this, [this, entry](void*) { remove(entry); }};
    }

    bool contains(std::uint16_t port) const
    {
        const std::lock_guard lock(mutex_);
        return std::ranges::find(ports_, port, &Entry::port) != ports_.end();
    }

    /// Names the service of a listener that was added without one.
    void name(std::uint16_t port, std::string service)
    {
        const std::lock_guard lock(mutex_);
        const auto position = std::ranges::find_if(ports_, [port](const Entry& entry) {
            return entry.port == port && entry.service.empty();
        });
        if (position != ports_.end())
            position->service = std::move(service);
    }

    /// If a listener has a port for this service (or for one with a canonically equivalent name),
    /// calls `removed` once it is closed, on the thread that closes it, and returns true.
    bool afterRemoval(const std::string& service, std::function<void()> removed)
    {
        const std::lock_guard lock(mutex_);
        const auto position = std::ranges::find_if(ports_, [&service](const Entry& entry) {
            return canonicallyEqual(entry.service, service);
        });
        if (position == ports_.end())
            return false;
        position->removed.push_back(std::move(removed));
        return true;
    }

private:
    struct Entry {
        std::uint16_t port = 0;
        std::string service;
        std::vector<std::function<void()>> removed;
    };

    void remove(std::list<Entry>::iterator entry)
    {
        std::list<Entry> removed;
        {
            const std::lock_guard lock(mutex_);
            removed.splice(removed.end(), ports_, entry);
        }
        for (const auto& each : removed.front().removed)
            each();
    }

    mutable std::mutex mutex_;
    std::list<Entry> ports_;
};

} // namespace quillbox
