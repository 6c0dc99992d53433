#include "platform/dnssd/dns_sd_center.h"

#include "platform/dnssd/operations/center.h"
#include "platform/dnssd/operations/registration.h"
#include "platform/dnssd/operations/resolution.h"
#include "platform/dnssd/operations/service_browse.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <utility>

namespace quillbox {

namespace {

using dnssd::Center;

/// A closure that calls `work` with the center, unless that has been destroyed by then.
template <class Work> auto onCenter(const std::shared_ptr<Center>& center, Work work)
{
    return [weak = std::weak_ptr(center), work = std::move(work)] {
        if (const auto self = weak.lock())
            work(*self);
    };
}

class CenterSubscription final : public DnsSd::Subscription {
public:
    CenterSubscription(const std::shared_ptr<Center>& center, std::uint64_t number)
        : queue(center->queue),
          end(onCenter(center, [number](Center& where) { where.operations.erase(number); }))
    {
    }
    CenterSubscription(const CenterSubscription&) = delete;
    CenterSubscription& operator=(const CenterSubscription&) = delete;
    ~CenterSubscription() override { queue->async(end); }

private:
    const std::shared_ptr<DispatchQueue> queue;
    const std::function<void()> end;
};

class CenterDnsSd final : public DnsSd {
public:
    CenterDnsSd(std::unique_ptr<dnssd::Engine> engine, std::shared_ptr<DispatchQueue> queue,
                NetworkMonitor& monitor, Log& log, Reach reach)
        : center(std::make_shared<Center>(std::move(engine), std::move(queue), monitor, log, reach))
    {
        center->addressChanges = monitor.subscribe(
            center->queue, onCenter(center, [](Center& where) {
                if (where.localAddresses.refresh())
                    where.link.tellAll([](auto& client) { client.localAddressesChanged(); });
            }));
        center->queue->async(onCenter(center, [](Center& where) { where.link.start(); }));
    }
    CenterDnsSd(const CenterDnsSd&) = delete;
    CenterDnsSd& operator=(const CenterDnsSd&) = delete;

    std::unique_ptr<Subscription> browse(std::string type, std::shared_ptr<DispatchQueue> queue,
                                         std::function<void(const BrowseUpdate&)> handler) override
    {
        return start<dnssd::ServiceBrowse>({std::move(queue), std::move(handler)}, std::move(type));
    }

    std::unique_ptr<Subscription>
    resolve(Endpoint endpoint, std::shared_ptr<DispatchQueue> queue,
            std::function<void(const ResolveUpdate&)> handler) override
    {
        return start<dnssd::Resolution>({std::move(queue), std::move(handler)},
                                        std::move(endpoint));
    }

    std::unique_ptr<Subscription>
    registerService(ServiceRegistration service, std::uint16_t port,
                    std::shared_ptr<DispatchQueue> queue,
                    std::function<void(const RegistrationUpdate&)> handler) override
    {
        return start<dnssd::Registration>({std::move(queue), std::move(handler)},
                                          std::move(service), port);
    }

    std::unique_ptr<Subscription>
    findOwn(std::string name, std::string type, std::shared_ptr<DispatchQueue> queue,
            std::function<void(const std::optional<OwnService>&)> handler) override
    {
        return start<dnssd::OwnServices::Lookup>({std::move(queue), std::move(handler)},
                                                 std::move(name), std::move(type));
    }

private:
    /// Makes a query or registration on the center's queue, and keeps it there.
    template <class Operation, class... Arguments>
    std::unique_ptr<Subscription> start(typename Operation::Report report, Arguments... arguments)
    {
        const std::uint64_t number = nextNumber++;
        center->queue->async(onCenter(center, [=](Center& where) {
            auto operation = std::make_shared<Operation>(where, report, arguments...);
            where.operations.emplace(number, operation);
            operation->start();
        }));
        return std::make_unique<CenterSubscription>(center, number);
    }

    const std::shared_ptr<Center> center;
    std::atomic<std::uint64_t> nextNumber{1};
};

} // namespace

std::unique_ptr<DnsSd> makeDnsSd(std::unique_ptr<dnssd::Engine> engine,
                                 std::shared_ptr<DispatchQueue> queue, NetworkMonitor& monitor,
                                 Log& log, Reach reach)
{
    return std::make_unique<CenterDnsSd>(std::move(engine), std::move(queue), monitor, log, reach);
}

} // namespace quillbox
