#pragma once

#include "platform/endpoint.h"
#include "platform/network.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quillbox {

/// Turns a discovered web-management service into the URL of the phone's management page: "https"
/// to its numeric address (IPv4 before IPv6), its port, path "/".
///
/// Belongs to the main thread. Reports once through `completed`, and not at all after `cancel`; the
/// owner keeps it until then. `completed` may drop the resolver.
class ManagementResolver final : public std::enable_shared_from_this<ManagementResolver> {
public:
    using Completed = std::function<void(const std::optional<std::string>& url)>;

    ManagementResolver(Network& network, const Endpoint& endpoint, Completed completed);

    ManagementResolver(const ManagementResolver&) = delete;
    ManagementResolver& operator=(const ManagementResolver&) = delete;

    /// Resolves for 6 seconds at the most. For an endpoint that is no service it reports none at
    /// once, inside this call.
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
