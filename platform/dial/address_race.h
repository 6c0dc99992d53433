#pragma once

#include "platform/dial/dial_context.h"
#include "platform/dial/dialable_address.h"
#include "platform/dispatch/closure.h"
#include "platform/dispatch/fd_watcher.h"
#include "platform/dispatch/loop_queue.h"
#include "platform/dispatch/timer.h"
#include "platform/values/socket_address.h"

#include <chrono>
#include <memory>
#include <system_error>
#include <vector>

namespace quillbox {

/// Connects to the first address of a host that answers ("Happy Eyeballs", RFC 8305, section 5).
/// Attempts start one after another, first those to recently used addresses, then alternating
/// between IPv6 and IPv4. The next one starts 100 ms after the previous one, or as soon as that
/// fails; a limited number run at a time. 100 ms is the RFC's recommended minimum: the hosts are on
/// the local network, and waiting for a stale address would take seconds. The first attempt that
/// connects wins, and the others are closed.
///
/// Used on its queue, where the handlers are called as well, never inside a call to this object.
class AddressRace final : public std::enable_shared_from_this<AddressRace> {
public:
    static constexpr std::chrono::milliseconds kStagger{100};
    static constexpr std::size_t kMostAtOnce = 8;

    struct Outcome {
        std::error_code error; ///< the last one; none if there was nothing to try
        bool isFinal = false;  ///< connection refused or reset, or out of local resources
    };

    struct Handlers {
        Closure<16, std::unique_ptr<FdWatcher>> won;
        /// All candidates have failed. Called again after each `setCandidates` and `restart` after
        /// which no attempt is pending.
        Closure<16, Outcome> lost;
    };

    /// `client` is as in `TcpParameters`.
    AddressRace(std::shared_ptr<DialContext> context, std::shared_ptr<LoopQueue> queue,
                SocketAddress client, Handlers handlers);
    ~AddressRace();

    AddressRace(const AddressRace&) = delete;
    AddressRace& operator=(const AddressRace&) = delete;

    /// Sets the complete list of candidates. New ones are added to the race; removed ones are not
    /// tried any more, but a pending attempt may still win. One that has failed is retried if its
    /// records arrived on other interfaces than before.
    void setCandidates(std::vector<Candidate> candidates);

    /// Retries the candidates that have failed.
    void restart();

    /// Closes all sockets; no handler is called afterwards.
    void stop();

private:
    enum class State { Untried, Trying, Lost };
    struct Entry;

    bool isSameWay(const Entry& entry, const Candidate& candidate) const;
    void advanceSoon();
    void advance();
    bool mayTryAnother() const;
    void startNextLater();
    std::shared_ptr<Entry> takeNext();
    void dial(const std::shared_ptr<Entry>& entry);
    DialPermission permissionFor(const Candidate& candidate) const;
    std::error_code resultOf(const Entry& entry) const;
    void settle(const std::shared_ptr<Entry>& entry, std::error_code error);
    void noteWinner(const SocketAddress& address);
    std::size_t countOf(State state) const;
    void tellLost();
    void closeAll();

    const std::shared_ptr<DialContext> context_;
    const std::shared_ptr<LoopQueue> queue_;
    const SocketAddress client_;
    Timer timer_;
    Handlers handlers_;
    std::vector<std::shared_ptr<Entry>> entries_;
    std::unique_ptr<FdWatcher> winner_;
    int lastFamily_ = 0;
    bool isAdvancing_ = false;
    bool isStopped_ = false;
    std::error_code lastError_;
};

} // namespace quillbox
