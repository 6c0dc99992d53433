#pragma once

#include "platform/network.h"
#include "platform/values/endpoint.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quillbox {

/// Resolves a discovered web-management service to the URL of the phone's management page: scheme
/// "https", numeric address (IPv4 before IPv6), port, path "/".
///
/// Used on the main thread. Calls `completed` once, and not after `cancel`; the owner keeps the
/// resolver until then. `completed` may destroy the resolver.
class ManagementResolver final : public std::enable_shared_from_this<ManagementResolver> {
public:
    using Completed = std::function<void(const std::optional<std::string>& url)>;

    ManagementResolver(Network& network, const Endpoint& endpoint, Completed completed);

    ManagementResolver(const ManagementResolver&) = delete;
    ManagementResolver& operator=(const ManagementResolver&) = delete;

    /// Resolves for at most 6 seconds. If the endpoint is not a service, calls `completed` without
    /// a URL inside this call.
    void start();

    void cancel();

private:
    void netServiceDidResolveAddress();
    void netServiceDidNotResolve();
    void detach();

    std::unique_ptr<NetService> service;
    Completed completed;
};

} // namespace quillbox
