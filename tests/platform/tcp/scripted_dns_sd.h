#pragma once

#include "platform/dns_sd.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace quillbox {

inline const ServiceEndpoint kPhone{.name = "Phone", .type = "_quillbox._tcp", .domain = "local"};

/// An update with these addresses, settled for both families.
DnsSd::ResolveUpdate found(std::vector<DnsSd::FoundAddress> addresses);

/// A fake DNS-SD for objects on real queues: it records queries and registrations, and the test
/// delivers the updates. Thread-safe, like the real one.
class ScriptedDnsSd final : public DnsSd {
public:
    /// One query or registration. It outlives its `Subscription`, whose destruction sets `isEnded`.
    struct Record {
        enum class Kind { Browse, Resolve, Register, FindOwn };

        Kind kind = Kind::Browse;
        std::string text;                 ///< service type or service name
        std::optional<Endpoint> endpoint; ///< to resolve
        std::optional<ServiceRegistration> registration;
        std::uint16_t port = 0; ///< of a registration
        std::shared_ptr<DispatchQueue> queue;
        std::function<void(const BrowseUpdate&)> browsed;
        std::function<void(const ResolveUpdate&)> resolved;
        std::function<void(const RegistrationUpdate&)> registered;
        std::function<void(const std::optional<OwnService>&)> foundOwn;
        bool isEnded = false;
    };

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

    /// All queries and registrations so far, in order, including ended ones.
    std::size_t count() const;
    Record record(std::size_t index) const;

    /// Waits for at least `count` queries and registrations; false on timeout.
    bool waitForCount(std::size_t count, std::chrono::milliseconds limit) const;

    /// The number of active queries and registrations.
    std::size_t standing() const;

    /// Waits until exactly `count` are active; false on timeout.
    bool waitForStanding(std::size_t count, std::chrono::milliseconds limit) const;

    /// Posts an update to the queue of the record; it is dropped if the `Subscription` has ended by
    /// then.
    void deliver(std::size_t index, ResolveUpdate update);
    void deliver(std::size_t index, RegistrationUpdate update);

    /// Answers every later resolution with `update` immediately.
    void answerAll(ResolveUpdate update);

private:
    class HeldSubscription;
    struct Shared;

    static std::shared_ptr<Shared> makeShared();
    std::unique_ptr<Subscription> add(Record record);

    const std::shared_ptr<Shared> shared_ = makeShared();
};

} // namespace quillbox
