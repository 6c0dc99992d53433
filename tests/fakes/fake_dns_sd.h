#pragma once

#include "platform/dns_sd.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace quillbox {

/// An update with the complete set of services.
DnsSd::BrowseUpdate readyWith(const std::vector<Endpoint>& services);

/// An update with these addresses, settled for both families.
DnsSd::ResolveUpdate found(std::vector<DnsSd::FoundAddress> addresses);

/// A DNS-SD whose updates come from a test. Thread-safe. It may be destroyed before the
/// subscriptions that it returned.
///
/// A request that is repeated while it is active fails the test: equal active requests are merged,
/// so the repetition would send nothing.
class FakeDnsSd final : public DnsSd {
public:
    /// A query or registration. It outlives its `Subscription`.
    template <class Request, class Update> struct Operation {
        Request request;
        std::shared_ptr<DispatchQueue> queue;
        std::function<void(const Update&)> handler;
        std::shared_ptr<const std::atomic<bool>> ended = {}; ///< set with the `Subscription`'s end

        bool isEnded() const { return *ended; }

        /// Queues a call of the handler; when the operation has ended, one that is late.
        void tell(const Update& update) const
        {
            queue->async([handler = handler, update] { handler(update); });
        }
    };

    struct ServiceAtPort {
        ServiceRegistration service;
        std::uint16_t port = 0;

        bool operator==(const ServiceAtPort&) const = default;
    };

    using Browse = Operation<std::string, BrowseUpdate>;
    using Resolution = Operation<Endpoint, ResolveUpdate>;
    using Registration = Operation<ServiceAtPort, RegistrationUpdate>;
    using OwnQuery = Operation<std::string, std::optional<OwnService>>; ///< of "NAME.TYPE"

    FakeDnsSd() : state_(std::make_shared<State>()) {}

    /// The operations so far, in the order in which they were started.
    std::vector<Browse> browses() const { return all<Browse>(); }
    std::vector<Resolution> resolutions() const { return all<Resolution>(); }
    std::vector<Registration> registrations() const { return all<Registration>(); }
    std::vector<OwnQuery> ownQueries() const { return all<OwnQuery>(); }

    /// The number of operations so far, of all kinds.
    std::size_t count() const;

    /// Waits until there have been `least` operations, or until exactly `number` are active; false
    /// on timeout.
    bool waitForCount(std::size_t least, std::chrono::milliseconds limit) const;
    bool waitForActive(std::size_t number, std::chrono::milliseconds limit) const;

    /// Answers every later resolution at once.
    void answerAll(ResolveUpdate update);

    /// The observer is called before each start and after each end, as with "browse.start TYPE" and
    /// "resolution.cancel ENDPOINT".
    using Observer = std::function<void(const std::string& event)>;
    void observe(Observer observer);

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
    struct State {
        void note(const std::string& event);

        std::mutex mutex;
        std::condition_variable changed;
        std::tuple<std::vector<Browse>, std::vector<Resolution>, std::vector<Registration>,
                   std::vector<OwnQuery>>
            operations;
        std::size_t count = 0;
        std::size_t active = 0;
        std::optional<ResolveUpdate> answer;
        Observer observer;
    };

    template <class Kind> std::vector<Kind> all() const
    {
        const std::lock_guard lock(state_->mutex);
        return std::get<std::vector<Kind>>(state_->operations);
    }

    template <class Kind>
    std::unique_ptr<Subscription> start(const std::string& name, Kind operation);

    const std::shared_ptr<State> state_; ///< also of the subscriptions
};

/// Those of the operations that have not ended.
template <class Kind> std::vector<Kind> active(std::vector<Kind> operations)
{
    std::erase_if(operations, [](const Kind& each) { return each.isEnded(); });
    return operations;
}

} // namespace quillbox
