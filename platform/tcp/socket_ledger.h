#pragma once

#include "platform/values/socket_address.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include <sys/resource.h>

namespace quillbox {

/// Counts the open sockets of connections, and bounds how many of them clients may cause. A host
/// may have as many accepted connections as there are sockets left: the more hosts there are, the
/// fewer has each, and no host takes all. Thread-safe.
class SocketLedger final : public std::enable_shared_from_this<SocketLedger> {
public:
    /// Counts one socket as open until the last copy is dropped. Null: no place.
    using Place = std::shared_ptr<void>;

    /// `most`: how many sockets the sessions of other computers may use. Those of this computer may
    /// use an eighth more.
    explicit SocketLedger(std::size_t most) : most_(most), mostWithOwn_(most + most / 8) {}

    /// Four of five file descriptors that this process may open, but no more than 16,384: a host
    /// alone can have a third as many sessions, of two sockets each.
    static std::size_t defaultMost()
    {
        constexpr rlim_t kMost = 16'384;
        rlimit limit{};
        // An unlimited number is a large one (RLIM_INFINITY).
        if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
            return kMost;
        return static_cast<std::size_t>(std::min(limit.rlim_cur / 5 * 4, kMost));
    }

    /// A place for an outgoing connection; null if no sockets are left.
    Place open()
    {
        const std::lock_guard lock(mutex_);
        return open_ < mostWithOwn_ ? makePlace(std::nullopt) : nullptr;
    }

    /// Whether less than half of the places are taken: then a session may try several addresses of
    /// its phone at a time, and otherwise one after the other. A stranger could announce many
    /// addresses that do not answer.
    bool hasPlenty() const
    {
        const std::lock_guard lock(mutex_);
        return open_ < most_ / 2;
    }

    /// A place for an accepted connection; null if its client's host has too many. `client`: any
    /// port. `isOwn`: whether the client is on this computer.
    Place admit(const SocketAddress& client, bool isOwn)
    {
        const std::lock_guard lock(mutex_);
        const auto most = isOwn ? mostWithOwn_ : most_;
        const auto left = most - std::min(most, open_);
        const auto host = hosts_.try_emplace(withPort(client, 0)).first;
        if (host->second >= left) {
            if (host->second == 0)
                hosts_.erase(host);
            return nullptr;
        }
        ++host->second;
        return makePlace(host);
    }

    /// Calls `work` once, after the next socket has been closed, on the thread that closes it.
    void afterNextClose(std::function<void()> work)
    {
        const std::lock_guard lock(mutex_);
        waiting_.push_back(std::move(work));
    }

    bool waitUntilNoneIsOpen(std::chrono::milliseconds limit)
    {
        std::unique_lock lock(mutex_);
        return closed_.wait_for(lock, limit, [this] { return open_ == 0; });
    }

    std::size_t openCount() const
    {
        const std::lock_guard lock(mutex_);
        return open_;
    }

private:
    using Hosts = std::map<SocketAddress, std::size_t>;

    /// `host`: that of an accepted connection.
    Place makePlace(std::optional<Hosts::iterator> host)
    {
        ++open_;
        return {this, [self = shared_from_this(), host](void*) { self->free(host); }};
    }

    void free(const std::optional<Hosts::iterator>& host)
    {
        std::vector<std::function<void()>> waiting;
        {
            const std::lock_guard lock(mutex_);
            --open_;
            if (host && --(*host)->second == 0)
                hosts_.erase(*host);
            waiting.swap(waiting_);
            closed_.notify_all();
        }
        for (const auto& each : waiting)
            each();
    }

    const std::size_t most_;
    const std::size_t mostWithOwn_;
    mutable std::mutex mutex_;
    std::condition_variable closed_;
    std::size_t open_ = 0;
    Hosts hosts_; ///< how many accepted connections each host has; their addresses have port 0
    std::vector<std::function<void()>> waiting_;
};

} // namespace quillbox
