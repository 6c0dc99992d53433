#pragma once

#include "platform/dns_sd.h"

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>

namespace quillbox {

/// A DNS-SD controlled by a test, which can inspect the active operations and send updates to their
/// handlers. For use by one thread. It may be destroyed before the asks that it returned.
class FakeDnsSd final : public DnsSd {
public:
    template <class Subject, class Update> struct Standing {
        Subject subject;
        std::shared_ptr<DispatchQueue> queue;
        std::function<void(const Update&)> handler;

        void tell(const Update& update) const
        {
            queue->async([handler = handler, update] { handler(update); });
        }
    };

    struct Registered {
        ServiceRegistration service;
        std::uint16_t port = 0;
    };

    using Browse = Standing<std::string, BrowseUpdate>;
    using Resolution = Standing<ServiceEndpoint, ResolveUpdate>;
    using HostResolution = Standing<std::string, ResolveUpdate>;
    using Registration = Standing<Registered, RegistrationUpdate>;
    using OwnQuestion = Standing<std::string, OwnServiceUpdate>;

    /// The active operations, in the order in which they were started.
    const std::list<Browse>& browses() const { return *browseList; }
    const std::list<Resolution>& resolutions() const { return *resolutionList; }
    const std::list<HostResolution>& hostResolutions() const { return *hostList; }
    const std::list<Registration>& registrations() const { return *registrationList; }
    const std::list<OwnQuestion>& ownQuestions() const { return *ownList; }

    std::unique_ptr<Subscription> browse(std::string type, std::shared_ptr<DispatchQueue> queue,
                                         std::function<void(const BrowseUpdate&)> handler) override;
    std::unique_ptr<Subscription>
    resolve(ServiceEndpoint service, std::shared_ptr<DispatchQueue> queue,
            std::function<void(const ResolveUpdate&)> handler) override;
    std::unique_ptr<Subscription>
    resolveHost(std::string hostName, std::shared_ptr<DispatchQueue> queue,
                std::function<void(const ResolveUpdate&)> handler) override;
    std::unique_ptr<Subscription>
    registerService(ServiceRegistration service, std::uint16_t port,
                    std::shared_ptr<DispatchQueue> queue,
                    std::function<void(const RegistrationUpdate&)> handler) override;
    std::unique_ptr<Subscription>
    findOwn(std::string name, std::string type, std::shared_ptr<DispatchQueue> queue,
            std::function<void(const OwnServiceUpdate&)> handler) override;

private:
    const std::shared_ptr<std::list<Browse>> browseList = std::make_shared<std::list<Browse>>();
    const std::shared_ptr<std::list<Resolution>> resolutionList =
        std::make_shared<std::list<Resolution>>();
    const std::shared_ptr<std::list<HostResolution>> hostList =
        std::make_shared<std::list<HostResolution>>();
    const std::shared_ptr<std::list<Registration>> registrationList =
        std::make_shared<std::list<Registration>>();
    const std::shared_ptr<std::list<OwnQuestion>> ownList =
        std::make_shared<std::list<OwnQuestion>>();
};

} // namespace quillbox
