#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/dns_sd.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <variant>

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
class AddressBook final : public std::enable_shared_from_this<AddressBook> {
public:
    using Handler = std::function<void(const DnsSd::ResolveUpdate&)>;

    /// Within this time connections share a query without sending it again.
    static constexpr std::chrono::milliseconds kFreshTime{1000};

    /// How long an unused query stays active. Equals the TTL of a host's records (RFC 6762, section
    /// 10), so this causes no more traffic than caching the answer.
    static constexpr std::chrono::milliseconds kKeepTime{120'000};

    /// Receives the DNS-SD updates on `queue`, which may be dedicated to it. `dnsSd` outlives the
    /// address book.
    AddressBook(DnsSd& dnsSd, std::shared_ptr<DispatchQueue> queue,
                std::chrono::milliseconds freshTime = kFreshTime,
                std::chrono::milliseconds keepTime = kKeepTime);
    ~AddressBook();

    AddressBook(const AddressBook&) = delete;
    AddressBook& operator=(const AddressBook&) = delete;

    /// Like the functions of `DnsSd`, except that no update comes before there is an address, an
    /// error, or the result that there is no address.
    std::unique_ptr<DnsSd::Ask> resolve(const ServiceEndpoint& service,
                                        std::shared_ptr<DispatchQueue> queue, Handler handler);
    std::unique_ptr<DnsSd::Ask> resolveHost(const std::string& hostName,
                                            std::shared_ptr<DispatchQueue> queue, Handler handler);

private:
    using Clock = std::chrono::steady_clock;
    using Question = std::variant<ServiceEndpoint, std::string>; ///< a service or a host name
    using Known = std::shared_ptr<const DnsSd::ResolveUpdate>;

    class Reader;
    struct Entry;

    std::unique_ptr<DnsSd::Ask> read(const Question& question, std::shared_ptr<DispatchQueue> queue,
                                     Handler handler);
    void ask(Entry& entry, const std::string& key);
    void take(const std::string& key, std::uint64_t number, const DnsSd::ResolveUpdate& update);
    void dropLater(const std::string& key, std::chrono::milliseconds pause);
    void dropUnused(const std::string& key);

    DnsSd& dnsSd_;
    const std::shared_ptr<DispatchQueue> queue_;
    const std::chrono::milliseconds freshTime_;
    const std::chrono::milliseconds keepTime_;
    std::mutex mutex_;
    std::uint64_t lastNumber_ = 0;
    std::map<std::string, Entry> entries_;
};

} // namespace quillbox
