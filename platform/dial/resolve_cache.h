#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dns_sd.h"
#include "platform/values/endpoint.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

namespace quillbox {

/// Caches the addresses that DNS-SD resolves for services and hosts. A file browser opens many
/// connections in a row, and a DNS-SD query costs more than the rest of a connection: it involves
/// two other threads, another process, and the network.
///
/// A query stays active for a while after its last use, so that the cache follows record changes.
/// Cached addresses are delivered to a new connection at once. If the query is older than
/// `kFreshTime`, it is also sent again, so that the host answers on the network: a change that was
/// missed then still reaches the address race of this connection.
///
/// Thread-safe.
class ResolveCache final : public std::enable_shared_from_this<ResolveCache> {
public:
    using Handler = std::function<void(const DnsSd::ResolveUpdate&)>;

    /// Within this time connections share a query without sending it again.
    static constexpr std::chrono::milliseconds kFreshTime{1000};

    /// How long an unused query stays active. Equals the TTL of a host's records (RFC 6762, section
    /// 10), so this causes no more traffic than caching the answer.
    static constexpr std::chrono::milliseconds kKeepTime{120'000};

    /// Receives the DNS-SD updates on `queue`, which may be dedicated to it. `dnsSd` outlives the
    /// cache.
    ResolveCache(DnsSd& dnsSd, std::shared_ptr<DispatchQueue> queue,
                 std::chrono::milliseconds freshTime = kFreshTime,
                 std::chrono::milliseconds keepTime = kKeepTime);
    ~ResolveCache();

    ResolveCache(const ResolveCache&) = delete;
    ResolveCache& operator=(const ResolveCache&) = delete;

    /// Like `DnsSd::resolve`, except that no update comes
    /// before there is an address, an error, or the result that there is no address. Ends when the
    /// returned reference is dropped.
    std::shared_ptr<void> resolve(const Endpoint& endpoint, std::shared_ptr<DispatchQueue> queue,
                                  Handler handler);

private:
    using Clock = std::chrono::steady_clock;

    struct Reader;
    struct Entry;

    void subscribe(const Endpoint& endpoint, Entry& entry);
    void take(const Endpoint& endpoint, const std::weak_ptr<void>& token,
              const DnsSd::ResolveUpdate& update);
    void dropUnusedLater(std::chrono::milliseconds pause);
    void dropUnused();

    DnsSd& dnsSd_;
    const std::shared_ptr<DispatchQueue> queue_;
    const std::chrono::milliseconds freshTime_;
    const std::chrono::milliseconds keepTime_;
    std::mutex mutex_;
    std::map<Endpoint, Entry> entries_;
};

} // namespace quillbox
