#pragma once

#include "platform/dispatch/timer.h"
#include "platform/net_service.h"
#include "platform/tcp/dialable_address.h"
#include "platform/tcp/socket.h"
#include "platform/tcp/tcp_context.h"

#include <chrono>
#include <functional>
#include <memory>
#include <system_error>
#include <vector>

namespace quillbox {

/// An address to be tried, with its port.
struct Candidate {
    SocketAddress address;
    AddressOrigin origin = AddressOrigin::Typed;

    bool operator==(const Candidate&) const = default;
};

/// Races the addresses of one host (RFC 8305, section 5): they are tried in turn, first those that
/// were connected to of late, then IPv6 and IPv4 alternating, each a tenth of a second after the
/// one before (the shortest delay that is recommended there: the hosts are on this network, and a
/// stale address costs seconds), or at once when that has failed; a few at a time. The first that
/// connects wins, and the others are closed.
///
/// Lives on one strand. The handlers are called there, never inside a call.
class AddressRace final : public std::enable_shared_from_this<AddressRace> {
public:
    static constexpr std::chrono::milliseconds kStagger{100};
    static constexpr std::size_t kMostAtOnce = 8;

    struct Outcome {
        std::error_code error; ///< the last one; none when there was nothing to try
        bool isFinal = false;  ///< a host answered with a refusal, or this computer cannot dial
    };

    struct Handlers {
        std::function<void(std::unique_ptr<Socket>)> won;
        /// All that is known has been tried. Called again after each `setCandidates` and `restart`
        /// that leaves nothing to wait for.
        std::function<void(Outcome)> lost;
    };

    AddressRace(std::shared_ptr<TcpContext> context, Strand strand, Handlers handlers);
    ~AddressRace();

    AddressRace(const AddressRace&) = delete;
    AddressRace& operator=(const AddressRace&) = delete;

    /// The complete set. New ones join; those that are gone are not tried any more, but an attempt
    /// that is under way may still win.
    void setCandidates(const std::vector<Candidate>& candidates);

    /// Tries those that have failed once more.
    void restart();

    /// Closes everything; no handler is called any more.
    void stop();

private:
    struct Entry;

    void advanceSoon();
    void advance();
    void startNextLater();
    std::shared_ptr<Entry> takeNext();
    void dial(const std::shared_ptr<Entry>& entry);
    void settle(const std::shared_ptr<Entry>& entry, std::error_code error);
    void noteWinner(const SocketAddress& address);
    bool hasUntried() const;
    std::size_t tryingCount() const;
    void tellLost();
    void closeAll();

    const std::shared_ptr<TcpContext> context_;
    const Strand strand_;
    Timer timer_;
    Handlers handlers_;
    std::vector<std::shared_ptr<Entry>> entries_;
    std::unique_ptr<Socket> winner_;
    int lastFamily_ = 0;
    bool isAdvancing_ = false;
    bool isStopped_ = false;
    std::error_code lastError_;
};

} // namespace quillbox
