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

/// What DNS-SD tells of services and hosts, kept for the connections to come. A file browser opens
/// many, one after the other, and a question costs more than all the rest of a connection: it
/// crosses two threads and a process, and the network.
///
/// A question stands for a while after the last connection that wanted to know, so that what is
/// kept changes as the records do. A connection is told it at once. If the question is older than a
/// moment it is also asked anew, which makes the host answer on the network: what was changed while
/// nobody could hear of it reaches the race of addresses that is under way by then.
///
/// Thread-safe.
class AddressBook final : public std::enable_shared_from_this<AddressBook> {
public:
    using Handler = std::function<void(const DnsSd::ResolveUpdate&)>;

    /// Connections that come together share a question.
    static constexpr std::chrono::milliseconds kFreshTime{1000};

    /// As long as a host's records are good for (RFC 6762, section 10): the question costs the
    /// network no more than remembering the answer would.
    static constexpr std::chrono::milliseconds kKeepTime{120'000};

    /// Hears of the answers on `queue`, on which nothing else need run. `dnsSd` outlives the book.
    AddressBook(DnsSd& dnsSd, std::shared_ptr<DispatchQueue> queue,
                std::chrono::milliseconds freshTime = kFreshTime,
                std::chrono::milliseconds keepTime = kKeepTime);
    ~AddressBook();

    AddressBook(const AddressBook&) = delete;
    AddressBook& operator=(const AddressBook&) = delete;

    /// As `DnsSd` has them, but that nothing is told before there is something to tell: an address,
    /// or that there is none.
    std::unique_ptr<DnsSd::Ask> resolve(const ServiceEndpoint& service,
                                        std::shared_ptr<DispatchQueue> queue, Handler handler);
    std::unique_ptr<DnsSd::Ask> resolveHost(const std::string& hostName,
                                            std::shared_ptr<DispatchQueue> queue, Handler handler);

private:
    using Clock = std::chrono::steady_clock;
    using Question = std::variant<ServiceEndpoint, std::string>; ///< a service or a host's name
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
