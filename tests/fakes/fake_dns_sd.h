#pragma once

#include "platform/dns_sd.h"

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
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
    using Resolution = Standing<Endpoint, ResolveUpdate>;
    using Registration = Standing<Registered, RegistrationUpdate>;
    using OwnQuestion = Standing<std::string, std::optional<OwnService>>;

    /// The active operations, in the order in which they were started.
    const std::list<Browse>& browses() const { return *browseList; }
    const std::list<Resolution>& resolutions() const { return *resolutionList; }
    const std::list<Registration>& registrations() const { return *registrationList; }
    const std::list<OwnQuestion>& ownQuestions() const { return *ownList; }

    std::unique_ptr<Subscription> browse(std::string type, std::shared_ptr<DispatchQueue> queue,
                                         std::function<void(const BrowseUpdate&)> handler) override;
    std::unique_ptr<Subscription>
    resolve(Endpoint endpoint, std::shared_ptr<DispatchQueue> queue,
            std::function<void(const ResolveUpdate&)> handler) override;
    std::unique_ptr<Subscription>
    registerService(ServiceRegistration service, std::uint16_t port,
                    std::shared_ptr<DispatchQueue> queue,
                    std::function<void(const RegistrationUpdate&)> handler) override;
    std::unique_ptr<Subscription>
    findOwn(std::string name, std::string type, std::shared_ptr<DispatchQueue> queue,
            std::function<void(const std::optional<OwnService>&)> handler) override;

private:
    const std::shared_ptr<std::list<Browse>> browseList = std::make_shared<std::list<Browse>>();
    const std::shared_ptr<std::list<Resolution>> resolutionList =
        std::make_shared<std::list<Resolution>>();
    const std::shared_ptr<std::list<Registration>> registrationList =
        std::make_shared<std::list<Registration>>();
    const std::shared_ptr<std::list<OwnQuestion>> ownList =
        std::make_shared<std::list<OwnQuestion>>();
};

} // namespace quillbox
