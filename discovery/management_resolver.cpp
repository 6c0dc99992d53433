#include "discovery/management_resolver.h"

#include "discovery/management_url.h"

#include <chrono>
#include <utility>

namespace quillbox {

namespace {

constexpr std::chrono::milliseconds kResolutionLimit{6000};

} // namespace

ManagementResolver::ManagementResolver(Network& network, const Endpoint& endpoint,
                                       Completed whenCompleted)
    : completed(std::move(whenCompleted))
{
    if (const ServiceEndpoint* instance = endpoint.service())
        service = network.makeNetService(*instance);
}

void ManagementResolver::start()
{
    if (!service) {
        const auto callback = completed;
        callback(std::nullopt);
        return;
    }
    service->setHandlers(
        [weak = weak_from_this()] {
            if (const auto self = weak.lock())
                self->netServiceDidResolveAddress();
        },
        [weak = weak_from_this()] {
            if (const auto self = weak.lock())
                self->netServiceDidNotResolve();
        });
    service->resolve(kResolutionLimit);
}

void ManagementResolver::cancel()
{
    detach();
}

void ManagementResolver::detach()
{
    if (!service)
        return;
    service->stop();
    service->setHandlers({}, {});
}

void ManagementResolver::netServiceDidResolveAddress()
{
    std::optional<std::string> url;
    for (const SocketAddress& address : ipv4First(service->addresses())) {
        url = managementUrl(address, service->port());
        if (url)
            break;
    }
    detach();
    // A copy: the callback may destroy the resolver.
    const auto callback = completed;
    callback(url);
}

void ManagementResolver::netServiceDidNotResolve()
{
    detach();
    const auto callback = completed;
    callback(std::nullopt);
}

} // namespace quillbox
