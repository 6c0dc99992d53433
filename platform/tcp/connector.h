#pragma once

#include "platform/dispatch/timer.h"
#include "platform/dispatch_queue.h"
#include "platform/dnssd/dns_sd.h"
#include "platform/endpoint.h"
#include "platform/network_monitor.h"
#include "platform/tcp/address_race.h"
#include "platform/tcp/tcp_context.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace quillbox {

/// Resolves an endpoint and races its addresses until one connects. If none is reachable, retries
/// when the network or the endpoint's records change, and with exponential backoff from 1 to 30
/// seconds, because a phone that wakes up causes no event. `client` is as in `TcpParameters`.
///
/// Used on its queue, where the handlers are called as well, never inside a call to this object.
class Connector final : public std::enable_shared_from_this<Connector> {
public:
    static constexpr std::chrono::seconds kFirstPause{1};
    static constexpr std::chrono::seconds kLongestPause{30};

    struct Handlers {
        /// No address is reachable at present; called again only if the error changes.
        std::function<void(std::error_code)> waiting;
        /// At most one of these two is called, as the last handler.
        std::function<void(std::unique_ptr<Socket>)> connected;
        std::function<void(std::error_code)> failed;
    };

    Connector(std::shared_ptr<TcpContext> context, std::shared_ptr<DispatchQueue> queue,
              Endpoint endpoint, SocketAddress client, Handlers handlers);

    Connector(const Connector&) = delete;
    Connector& operator=(const Connector&) = delete;

    /// Called once.
    void start();

    /// Ends all attempts; no handler is called afterwards. Idempotent.
    void stop();

private:
    void findAddresses();
    void resolveByDnsSd();
    void lookUp(const HostEndpoint& host);
    void takeLookedUp(const std::vector<SocketAddress>& addresses, std::error_code error);
    void takeResolved(const DnsSd::ResolveUpdate& update);
    void setCandidates(const std::vector<Candidate>& candidates);
    void lose(const AddressRace::Outcome& outcome);
    void fail(std::error_code error);
    void wait(std::error_code error);
    void watchNetwork();
    void retry();

    const std::shared_ptr<TcpContext> context_;
    const std::shared_ptr<DispatchQueue> queue_;
    const Endpoint endpoint_;
    const SocketAddress client_;
    Handlers handlers_;
    Timer timer_;
    std::shared_ptr<AddressRace> race_; ///< null before `start` and after `stop`
    std::unique_ptr<DnsSd::Ask> ask_;
    std::unique_ptr<NetworkMonitor::Subscription> networkChanges_;
    std::chrono::milliseconds pause_ = kFirstPause;
    std::optional<std::error_code> waitingError_; ///< set once no address could be reached
    std::error_code sourceError_;
    bool isSettled_ = false;       ///< whether the address lookup is complete
    bool isPartlySettled_ = false; ///< whether that of one family is: its addresses are current
    bool isLookingUp_ = false;
    bool hasCandidates_ = false;
};

} // namespace quillbox
