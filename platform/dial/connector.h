#pragma once

#include "platform/dial/address_race.h"
#include "platform/dial/dial_context.h"
#include "platform/dispatch/timer.h"
#include "platform/dispatch_queue.h"
#include "platform/dns_sd.h"
#include "platform/network_monitor.h"
#include "platform/tcp/tcp_connection.h"
#include "platform/values/endpoint.h"

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
class Connector final : public Dialler, public std::enable_shared_from_this<Connector> {
public:
    static constexpr std::chrono::seconds kFirstPause{1};
    static constexpr std::chrono::seconds kLongestPause{30};

    Connector(std::shared_ptr<DialContext> context, Endpoint endpoint, SocketAddress client);

    void start(std::shared_ptr<LoopQueue> queue, Handlers handlers) override;
    void stop() override;

private:
    void findAddresses();
    void resolveByDnsSd();
    void lookUp(const HostEndpoint& host);
    void takeLookedUp(const std::vector<SocketAddress>& addresses, std::error_code error);
    void takeResolved(const DnsSd::ResolveUpdate& update);
    void setCandidates(std::vector<Candidate> candidates);
    void lose(const AddressRace::Outcome& outcome);
    void fail(std::error_code error);
    void wait(std::error_code error);
    void watchNetwork();
    void retry();

    const std::shared_ptr<DialContext> context_;
    const Endpoint endpoint_;
    const SocketAddress client_;
    std::shared_ptr<LoopQueue> queue_; ///< null before `start`
    Handlers handlers_;
    std::optional<Timer> timer_;        ///< none before `start`
    std::shared_ptr<AddressRace> race_; ///< null before `start` and after `stop`
    std::shared_ptr<void> ask_;         ///< of the `ResolveCache`
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
