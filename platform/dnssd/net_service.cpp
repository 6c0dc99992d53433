#include "platform/dnssd/net_service.h"

#include "platform/values/socket_address.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace quillbox {

namespace {

/// How long to wait for an IPv4 address, which is used first, once there is an IPv6 address.
constexpr std::chrono::milliseconds kSecondFamilyLimit{500};

class DnsSdNetService final : public NetService {
public:
    DnsSdNetService(DnsSd& backend, std::shared_ptr<DispatchQueue> mainQueue,
                    ServiceEndpoint resolved)
        : dnsSd(backend), queue(std::move(mainQueue)), service(std::move(resolved))
    {
    }
    DnsSdNetService(const DnsSdNetService&) = delete;
    DnsSdNetService& operator=(const DnsSdNetService&) = delete;

    void setHandlers(DidResolveHandler resolved, DidNotResolveHandler notResolved) override
    {
        didResolve = std::move(resolved);
        didNotResolve = std::move(notResolved);
    }

    void resolve(std::chrono::milliseconds timeout) override
    {
        assert(queue->isCurrent());
        stop();
        found.clear();
        isWaitingForSecond = false;
        run = std::make_shared<DnsSdNetService*>(this);
        subscription = dnsSd.resolve(
            service, queue, [weak = std::weak_ptr(run)](const DnsSd::ResolveUpdate& update) {
                if (const auto self = weak.lock())
                    (*self)->handle(update);
            });
        queue->asyncAfter(timeout, [weak = std::weak_ptr(run)] {
            if (const auto self = weak.lock())
                (*self)->finish();
        });
    }

    void stop() override
    {
        run = nullptr;
        subscription = nullptr;
    }

    const std::vector<SocketAddress>& addresses() const override { return result; }
    std::uint16_t port() const override { return resultPort; }

private:
    void handle(const DnsSd::ResolveUpdate& update)
    {
        found = update.addresses;
        if (found.empty())
            return;
        const bool hasIPv4 =
            std::ranges::any_of(found, [](const auto& entry) { return isIPv4(entry.address); });
        if (hasIPv4 || (update.isSettledIPv4 && update.isSettledIPv6))
            return finish();
        if (!std::exchange(isWaitingForSecond, true)) {
            queue->asyncAfter(kSecondFamilyLimit, [weak = std::weak_ptr(run)] {
                if (const auto self = weak.lock())
                    (*self)->secondFamilyIsLate();
            });
        }
    }

    void secondFamilyIsLate()
    {
        isWaitingForSecond = false;
        if (!found.empty())
            finish();
    }

    /// Ends this run with what was found. The handler may destroy this object.
    void finish()
    {
        stop();
        takeResult();
        const auto handler = result.empty() ? didNotResolve : didResolve;
        if (handler)
            handler();
    }

    void takeResult()
    {
        // A service has one port. If its SRV records disagree, the port of the address to be used
        // first counts.
        result.clear();
        const auto preferred =
            std::ranges::find_if(found, [](const auto& entry) { return isIPv4(entry.address); });
        if (!found.empty())
            resultPort =
                portOf(preferred != found.end() ? preferred->address : found.front().address);
        for (const DnsSd::FoundAddress& entry : found) {
            if (portOf(entry.address) == resultPort
                && std::ranges::find(result, entry.address) == result.end())
                result.push_back(entry.address);
        }
    }

    DnsSd& dnsSd;
    const std::shared_ptr<DispatchQueue> queue;
    const ServiceEndpoint service;
    DidResolveHandler didResolve;
    DidNotResolveHandler didNotResolve;
    /// Set while a resolution runs; callbacks of earlier runs find their weak pointer expired.
    std::shared_ptr<DnsSdNetService*> run;
    std::unique_ptr<DnsSd::Subscription> subscription;
    std::vector<DnsSd::FoundAddress> found;
    bool isWaitingForSecond = false;
    std::vector<SocketAddress> result;
    std::uint16_t resultPort = 0;
};

} // namespace

std::unique_ptr<NetService> makeNetService(DnsSd& dnsSd, std::shared_ptr<DispatchQueue> mainQueue,
                                           ServiceEndpoint service)
{
    return std::make_unique<DnsSdNetService>(dnsSd, std::move(mainQueue), std::move(service));
}

} // namespace quillbox
