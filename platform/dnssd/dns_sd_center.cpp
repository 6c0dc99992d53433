#include "platform/dnssd/dns_sd_center.h"

#include "platform/dnssd/operations/engine_link.h"
#include "platform/dnssd/operations/host_identity.h"
#include "platform/dnssd/operations/local_addresses.h"
#include "platform/dnssd/operations/own_services.h"
#include "platform/dnssd/operations/record_query.h"
#include "platform/dnssd/operations/registration.h"
#include "platform/dnssd/operations/resolution.h"
#include "platform/dnssd/operations/service_browse.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>

namespace quillbox {

namespace {

using StandingId = std::uint64_t;

/// The active queries and registrations and the state that they share. Belongs to its queue.
class Center final {
public:
    Center(std::unique_ptr<dnssd::Engine> engine, std::shared_ptr<DispatchQueue> ownQueue,
           NetworkMonitor& monitor, Log& itsLog, Reach reach)
        : queue(std::move(ownQueue)),
          log(itsLog),
          link(std::move(engine)),
          localAddresses(monitor, reach),
          locations(link, *queue),
          addresses(link, *queue)
    {
    }
    Center(const Center&) = delete;
    Center& operator=(const Center&) = delete;
    ~Center() { link.stop(); }

    const std::shared_ptr<DispatchQueue> queue;
    Log& log;
    dnssd::EngineLink link;
    dnssd::LocalAddresses localAddresses;
    dnssd::HostIdentities identities;
    dnssd::OwnServices ownServices;
    dnssd::LocationPool locations;
    dnssd::AddressPool addresses;
    std::map<StandingId, std::shared_ptr<void>> standing;
};

class CenterSubscription final : public DnsSd::Subscription {
public:
    CenterSubscription(std::shared_ptr<DispatchQueue> centerQueue, std::weak_ptr<Center> owner,
                       StandingId standingId)
        : queue(std::move(centerQueue)), center(std::move(owner)), id(standingId)
    {
    }
    CenterSubscription(const CenterSubscription&) = delete;
    CenterSubscription& operator=(const CenterSubscription&) = delete;
    ~CenterSubscription() override
    {
        queue->async([center = std::move(center), id = id] {
            if (const auto self = center.lock())
                self->standing.erase(id);
        });
    }

private:
    const std::shared_ptr<DispatchQueue> queue;
    std::weak_ptr<Center> center;
    const StandingId id;
};

class CenterDnsSd final : public DnsSd {
public:
    CenterDnsSd(std::unique_ptr<dnssd::Engine> engine, std::shared_ptr<DispatchQueue> queue,
                NetworkMonitor& monitor, Log& log, Reach reach)
        : center(std::make_shared<Center>(std::move(engine), std::move(queue), monitor, log, reach))
    {
        center->localAddresses.start(
            center->queue, onCenter([](Center& changed) { changed.localAddresses.refresh(); }));
        center->queue->async(onCenter([](Center& started) { started.link.start(); }));
    }
    CenterDnsSd(const CenterDnsSd&) = delete;
    CenterDnsSd& operator=(const CenterDnsSd&) = delete;

    std::unique_ptr<Subscription> browse(std::string type, std::shared_ptr<DispatchQueue> queue,
                                         std::function<void(const BrowseUpdate&)> handler) override
    {
        dnssd::ServiceBrowse::Report report(std::move(queue), std::move(handler));
        return stand([type = std::move(type), report = std::move(report)](Center& where) {
            auto browse = std::make_shared<dnssd::ServiceBrowse>(where.link, *where.queue,
                                                                 where.locations, type, report);
            browse->start();
            return browse;
        });
    }

    std::unique_ptr<Subscription>
    resolve(ServiceEndpoint service, std::shared_ptr<DispatchQueue> queue,
            std::function<void(const ResolveUpdate&)> handler) override
    {
        dnssd::Resolution::Report report(std::move(queue), std::move(handler));
        return stand([service = std::move(service), report = std::move(report)](Center& where) {
            auto resolution = std::make_shared<dnssd::Resolution>(where.link, *where.queue,
                                                                  where.addresses, report);
            resolution->startService(where.locations, service);
            return resolution;
        });
    }

    std::unique_ptr<Subscription>
    resolveHost(std::string hostName, std::shared_ptr<DispatchQueue> queue,
                std::function<void(const ResolveUpdate&)> handler) override
    {
        dnssd::Resolution::Report report(std::move(queue), std::move(handler));
        return stand([hostName = std::move(hostName), report = std::move(report)](Center& where) {
            auto resolution = std::make_shared<dnssd::Resolution>(where.link, *where.queue,
                                                                  where.addresses, report);
            resolution->startHost(hostName);
            return resolution;
        });
    }

    std::unique_ptr<Subscription>
    registerService(ServiceRegistration service, std::uint16_t port,
                    std::shared_ptr<DispatchQueue> queue,
                    std::function<void(const RegistrationUpdate&)> handler) override
    {
        dnssd::Registration::Report report(std::move(queue), std::move(handler));
        return stand(
            [service = std::move(service), port, report = std::move(report)](Center& where) {
                auto registration = std::make_shared<dnssd::Registration>(
                    where.link, *where.queue, where.localAddresses, where.identities,
                    where.ownServices, service, port, report, where.log);
                registration->start();
                return registration;
            });
    }

    std::unique_ptr<Subscription>
    findOwn(std::string name, std::string type, std::shared_ptr<DispatchQueue> queue,
            std::function<void(const OwnServiceUpdate&)> handler) override
    {
        dnssd::OwnServices::Lookup::Report report(std::move(queue), std::move(handler));
        return stand([name = std::move(name), type = std::move(type),
                      report = std::move(report)](Center& where) {
            return std::make_shared<dnssd::OwnServices::Lookup>(where.ownServices, name, type,
                                                                report);
        });
    }

private:
    /// A closure that calls `work` with the center, unless that has been destroyed by then.
    template <typename Closure> std::function<void()> onCenter(Closure work) const
    {
        return [weak = std::weak_ptr(center), work = std::move(work)] {
            if (const auto self = weak.lock())
                work(*self);
        };
    }

    /// Calls `make` on the center's queue and keeps the query or registration that it returns.
    std::unique_ptr<Subscription> stand(std::function<std::shared_ptr<void>(Center&)> make)
    {
        const StandingId id = nextId++;
        center->queue->async(onCenter([id, make = std::move(make)](Center& where) {
            where.standing.emplace(id, make(where));
        }));
        return std::make_unique<CenterSubscription>(center->queue, center, id);
    }

    const std::shared_ptr<Center> center;
    std::atomic<StandingId> nextId{1};
};

} // namespace

std::unique_ptr<DnsSd> makeDnsSd(std::unique_ptr<dnssd::Engine> engine,
                                 std::shared_ptr<DispatchQueue> queue, NetworkMonitor& monitor,
                                 Log& log, Reach reach)
{
    return std::make_unique<CenterDnsSd>(std::move(engine), std::move(queue), monitor, log, reach);
}

} // namespace quillbox
