#include "discovery/management_resolver.h"

#include "discovery/management_url.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace quillbox {

namespace {

constexpr std::chrono::milliseconds kResolutionLimit{6000};

/// How long to wait for an IPv4 address, which is used first, once there is an IPv6 address.
constexpr std::chrono::milliseconds kSecondFamilyLimit{500};

} // namespace

ManagementResolver::ManagementResolver(Dispatch& dispatch, Network& itsNetwork,
                                       Endpoint itsEndpoint, Completed whenCompleted)
    : mainQueue(dispatch.mainQueue()),
      network(itsNetwork),
      endpoint(std::move(itsEndpoint)),
      completed(std::move(whenCompleted))
{
}

void ManagementResolver::start()
{
    const ServiceEndpoint* service = endpoint.service();
    if (!service)
        return report(std::nullopt);
    subscription = network.dnsSd().resolve(
        *service, mainQueue, [weak = weak_from_this()](const DnsSd::ResolveUpdate& found) {
            if (const auto self = weak.lock(); self && self->subscription)
                self->update(found);
        });
    after(kResolutionLimit, &ManagementResolver::finish);
}

void ManagementResolver::cancel()
{
    subscription = nullptr;
}

void ManagementResolver::update(const DnsSd::ResolveUpdate& update)
{
    addresses.clear();
    for (const auto& found : update.addresses)
        addresses.push_back(found.address);
    if (addresses.empty())
        return;
    std::ranges::stable_partition(addresses, isIPv4);
    if (isIPv4(addresses.front()) || (update.isSettledIPv4 && update.isSettledIPv6))
        finish();
    else if (!std::exchange(isWaitingForSecond, true))
        after(kSecondFamilyLimit, &ManagementResolver::secondFamilyIsLate);
}

void ManagementResolver::secondFamilyIsLate()
{
    isWaitingForSecond = false;
    if (!addresses.empty())
        finish();
}

void ManagementResolver::finish()
{
    subscription = nullptr;
    std::optional<std::string> url;
    for (const SocketAddress& address : addresses) {
        url = managementUrl(address);
        if (url)
            break;
    }
    report(url);
}

void ManagementResolver::report(const std::optional<std::string>& url)
{
    // A copy: the callback may destroy the resolver.
    const auto callback = completed;
    callback(url);
}

void ManagementResolver::after(std::chrono::milliseconds delay,
                               void (ManagementResolver::*action)())
{
    mainQueue->asyncAfter(delay, [weak = weak_from_this(), action] {
        if (const auto self = weak.lock(); self && self->subscription)
            ((*self).*action)();
    });
}

} // namespace quillbox
