#pragma once

#include "platform/values/socket_address.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <mutex>

namespace quillbox {

/// The addresses of recent successful connections, which are tried first the next time (RFC 8305,
/// section 4: prefer used addresses over unused ones). Otherwise every connection to a host would
/// start with addresses that did not answer the previous one. Thread-safe.
class ProvenAddresses final {
public:
    static constexpr std::size_t kMost = 256;

    void add(const SocketAddress& address)
    {
        const std::lock_guard lock(mutex_);
        // The usual case.
        if (!addresses_.empty() && addresses_.front() == address)
            return;
        std::erase(addresses_, address);
        addresses_.push_front(address);
        if (addresses_.size() > kMost)
            addresses_.pop_back();
    }

    void remove(const SocketAddress& address)
    {
        const std::lock_guard lock(mutex_);
        std::erase(addresses_, address);
    }

    bool contains(const SocketAddress& address) const
    {
        const std::lock_guard lock(mutex_);
        return std::ranges::find(addresses_, address) != addresses_.end();
    }

private:
    mutable std::mutex mutex_;
    std::deque<SocketAddress> addresses_; ///< the most recent one first
};

} // namespace quillbox
