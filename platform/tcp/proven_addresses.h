#pragma once

#include "platform/net_service.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <mutex>

namespace quillbox {

/// The addresses that were connected to of late, which are the first to be tried the next time (RFC
/// 8305, section 4: a client's experience goes before the order of preference). Without it each
/// connection to a host would try anew what did not answer the last one. Thread-safe.
class ProvenAddresses final {
public:
    static constexpr std::size_t kMost = 256;

    void add(const SocketAddress& address)
    {
        const std::lock_guard lock(mutex_);
        // Usually it is the one at the front.
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
    std::deque<SocketAddress> addresses_; ///< the last one first
};

} // namespace quillbox
