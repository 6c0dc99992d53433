#include "platform/dnssd/dns_sd_center.h"

#include "platform/dnssd/operations/engine_link.h"
#include "platform/dnssd/operations/host_identity.h"
#include "platform/dnssd/operations/local_addresses.h"
#include "platform/dnssd/operations/own_services.h"
#include "platform/dnssd/operations/record_question.h"
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

/// The active queries and registrations and the state that they share. Used and destroyed on its
/// queue, except for `stop`.
class Center final {
public:
    Center(std::unique_ptr<dnssd::Engine> engine, std::shared_ptr<DispatchQueue> ownQueue,
           NetworkMonitor& monitor, Reach reach)
        : queue(std::move(ownQueue)),
          link(std::move(engine)),
          localAddresses(monitor, reach),
          locations(link, *queue),
          addresses(link, *queue)
    {
    }
    Center(const Center&) = delete;
    Center& operator=(const Center&) = delete;

    static void start(const std::shared_ptr<Center>& center)
    {
        const std::weak_ptr<Center> weak = center;
        center->localAddresses.start(center->queue, [weak] {
            if (const auto self = weak.lock())
                self->localAddresses.refresh();
        });
        center->link.start([weak, queue = center->queue](dnssd::Event event) {
            queue->async([weak, event = std::move(event)] {
                if (const auto self = weak.lock())
                    self->link.handle(event);
            });
        });
    }

    void stop()
    {
        localAddresses.stop();
        link.stop();
    }

    const std::shared_ptr<DispatchQueue> queue;
    dnssd::EngineLink link;
    dnssd::LocalAddresses localAddresses;
    dnssd::HostIdentities identities;
    dnssd::OwnServices ownServices;
    dnssd::LocationPool locations;
    dnssd::AddressPool addresses;
    std::map<StandingId, std::shared_ptr<void>> standing;
};

class StandingAsk final : public DnsSd::Ask {
public:
    StandingAsk(std::shared_ptr<DispatchQueue> centerQueue, std::weak_ptr<Center> owner,
                StandingId standingId)
        : queue(std::move(centerQueue)), center(std::move(owner)), id(standingId)
    {
    }
    StandingAsk(const StandingAsk&) = delete;
    StandingAsk& operator=(const StandingAsk&) = delete;
    ~StandingAsk() override
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
                NetworkMonitor& monitor, Reach reach)
        : center(std::make_shared<Center>(std::move(engine), std::move(queue), monitor, reach))
    {
        Center::start(center);
    }
    CenterDnsSd(const CenterDnsSd&) = delete;
    CenterDnsSd& operator=(const CenterDnsSd&) = delete;
    ~CenterDnsSd() override
    {
        center->stop();
        // Active queries and registrations belong to the queue and must be destroyed there.
        const std::shared_ptr<DispatchQueue> queue = center->queue;
        queue->async([ended = std::move(center)] {});
    }

    std::unique_ptr<Ask> browse(std::string type, std::shared_ptr<DispatchQueue> queue,
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

    std::unique_ptr<Ask> resolve(ServiceEndpoint service, std::shared_ptr<DispatchQueue> queue,
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

    std::unique_ptr<Ask> resolveHost(std::string hostName, std::shared_ptr<DispatchQueue> queue,
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

    std::unique_ptr<Ask>
    registerService(ServiceRegistration service, std::uint16_t port,
                    std::shared_ptr<DispatchQueue> queue,
                    std::function<void(const RegistrationUpdate&)> handler) override
    {
        dnssd::Registration::Report report(std::move(queue), std::move(handler));
        return stand(
            [service = std::move(service), port, report = std::move(report)](Center& where) {
                auto registration = std::make_shared<dnssd::Registration>(
                    where.link, *where.queue, where.localAddresses, where.identities,
                    where.ownServices, service, port, report);
                registration->start();
                return registration;
            });
    }

    std::unique_ptr<Ask> findOwn(std::string name, std::string type,
                                 std::shared_ptr<DispatchQueue> queue,
                                 std::function<void(const OwnServiceUpdate&)> handler) override
    {
        dnssd::OwnServices::Question::Report report(std::move(queue), std::move(handler));
        return stand([name = std::move(name), type = std::move(type),
                      report = std::move(report)](Center& where) {
            return std::make_shared<dnssd::OwnServices::Question>(where.ownServices, name, type,
                                                                  report);
        });
    }

private:
    /// Calls `make` on the center's queue and keeps the query or registration that it returns.
    std::unique_ptr<Ask> stand(std::function<std::shared_ptr<void>(Center&)> make)
    {
        const StandingId id = nextId++;
        const std::weak_ptr<Center> weak = center;
        center->queue->async([weak, id, make = std::move(make)] {
            if (const auto self = weak.lock())
                self->standing.emplace(id, make(*self));
        });
        return std::make_unique<StandingAsk>(center->queue, weak, id);
    }

    std::shared_ptr<Center> center;
    std::atomic<StandingId> nextId{1};
};

} // namespace

std::unique_ptr<DnsSd> makeDnsSd(std::unique_ptr<dnssd::Engine> engine,
                                 std::shared_ptr<DispatchQueue> queue, NetworkMonitor& monitor,
                                 Reach reach)
{
    return std::make_unique<CenterDnsSd>(std::move(engine), std::move(queue), monitor, reach);
}

} // namespace quillbox
