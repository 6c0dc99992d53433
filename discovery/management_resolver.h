#pragma once

#include "platform/network.h"
#include "platform/values/endpoint.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillbox {

/// Resolves a discovered web-management service to the URL of the phone's management page: scheme
/// "https", numeric address (IPv4 before IPv6), port, path "/".
///
/// Used on the main thread. Calls `completed` once, and not after `cancel`; the owner keeps the
/// resolver until then. `completed` may destroy the resolver.
class ManagementResolver final : public std::enable_shared_from_this<ManagementResolver> {
public:
    using Completed = std::function<void(const std::optional<std::string>& url)>;

    ManagementResolver(Dispatch& dispatch, Network& network, Endpoint endpoint,
                       Completed completed);

    ManagementResolver(const ManagementResolver&) = delete;
    ManagementResolver& operator=(const ManagementResolver&) = delete;

    /// Called once. Resolves for at most 6 seconds of the monotonic clock, and for all of them
    /// while nothing is found, since a sleeping phone answers late. Ends when an IPv4 address is
    /// found; with IPv6 addresses only, when both address families are settled, or after half a
    /// second. If the endpoint is not a service, calls `completed` without a URL inside this call.
    void start();

    void cancel();

private:
    void update(const DnsSd::ResolveUpdate& update);
    void secondFamilyIsLate();
    void finish();
    void report(const std::optional<std::string>& url);
    /// Calls `action` after `delay`, unless it has finished by then.
    void after(std::chrono::milliseconds delay, void (ManagementResolver::*action)());

    const std::shared_ptr<DispatchQueue> mainQueue;
    Network& network;
    const Endpoint endpoint;
    const Completed completed;
    std::unique_ptr<DnsSd::Subscription> subscription; ///< null when it is not resolving
    std::vector<SocketAddress> addresses;              ///< IPv4 first
    bool isWaitingForSecond = false;
};

} // namespace quillbox
