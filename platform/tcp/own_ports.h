#pragma once

#include <cstdint>
#include <mutex>
#include <set>

namespace quillbox {

/// The ports of this program's listeners. Thread-safe.
class OwnPorts final {
public:
    void add(std::uint16_t port)
    {
        const std::lock_guard lock(mutex_);
        ports_.insert(port);
    }

    void remove(std::uint16_t port)
    {
        const std::lock_guard lock(mutex_);
        if (const auto position = ports_.find(port); position != ports_.end())
            ports_.erase(position);
    }

    bool contains(std::uint16_t port) const
    {
        const std::lock_guard lock(mutex_);
        return ports_.contains(port);
    }

private:
    mutable std::mutex mutex_;
    std::multiset<std::uint16_t> ports_; ///< one entry per listener, even if ports are equal
};

} // namespace quillbox
