#include "platform/tcp/socket_ledger.h"

#include "platform/values/socket_address.h"

#include <algorithm>

#include <sys/resource.h>

namespace quillbox {

std::size_t SocketLedger::defaultMost()
{
    constexpr rlim_t kMost = 16'384;
    rlimit limit{};
    // An unlimited number is a large one (RLIM_INFINITY).
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return kMost;
    return static_cast<std::size_t>(std::min(limit.rlim_cur / 5 * 4, kMost));
}

SocketLedger::Place SocketLedger::open()
{
    const std::lock_guard lock(mutex_);
    if (open_ >= mostWithOwn_)
        return nullptr;
    return makePlace(std::nullopt);
}

SocketLedger::Place SocketLedger::admit(const SocketAddress& client, bool isOwn)
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

/// `host`: that of an accepted connection.
SocketLedger::Place SocketLedger::makePlace(std::optional<Hosts::iterator> host)
{
    ++open_;
    return {this, [self = shared_from_this(), host](void*) { self->free(host); }};
}

void SocketLedger::free(const std::optional<Hosts::iterator>& host)
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

} // namespace quillbox
