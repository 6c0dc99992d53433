#pragma once

#include "platform/dnssd/dns_sd.h"

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

/// A complete answer to where something is.
DnsSd::ResolveUpdate found(std::vector<DnsSd::FoundAddress> addresses);

/// DNS-SD by hand for objects that live on real queues: it notes what it is asked, and a test
/// delivers the updates. Thread-safe, as the real one is.
class ScriptedDnsSd final : public DnsSd {
public:
    /// One question or registration. It outlives the `Ask`, which only marks it as ended.
    struct Record {
        enum class Kind { Browse, Resolve, ResolveHost, Register, FindOwn };

        Kind kind = Kind::Browse;
        std::string text;                       ///< the type, the host name, or an own name
        std::optional<ServiceEndpoint> service; ///< what is to be resolved
        std::optional<ServiceRegistration> registration;
        std::uint16_t port = 0; ///< of a registration
        std::shared_ptr<DispatchQueue> queue;
        std::function<void(const BrowseUpdate&)> browsed;
        std::function<void(const ResolveUpdate&)> resolved;
        std::function<void(const RegistrationUpdate&)> registered;
        std::function<void(const OwnServiceUpdate&)> foundOwn;
        bool isEnded = false;
    };

    std::unique_ptr<Ask> browse(std::string type, std::shared_ptr<DispatchQueue> queue,
                                std::function<void(const BrowseUpdate&)> handler) override;
    std::unique_ptr<Ask> resolve(ServiceEndpoint service, std::shared_ptr<DispatchQueue> queue,
                                 std::function<void(const ResolveUpdate&)> handler) override;
    std::unique_ptr<Ask> resolveHost(std::string hostName, std::shared_ptr<DispatchQueue> queue,
                                     std::function<void(const ResolveUpdate&)> handler) override;
    std::unique_ptr<Ask>
    registerService(ServiceRegistration service, std::uint16_t port,
                    std::shared_ptr<DispatchQueue> queue,
                    std::function<void(const RegistrationUpdate&)> handler) override;
    std::unique_ptr<Ask> findOwn(std::string name, std::string type,
                                 std::shared_ptr<DispatchQueue> queue,
                                 std::function<void(const OwnServiceUpdate&)> handler) override;

    /// What has been asked, in order, the ended ones included.
    std::size_t count() const;
    Record record(std::size_t index) const;

    /// Waits until so many have been asked.
    bool waitForCount(std::size_t count, std::chrono::milliseconds limit) const;

    /// How many asks stand.
    std::size_t standing() const;

    /// Waits until so many stand.
    bool waitForStanding(std::size_t count, std::chrono::milliseconds limit) const;

    /// Puts an update on the queue of the ask; it is not delivered once the ask has ended.
    void deliver(std::size_t index, ResolveUpdate update);
    void deliver(std::size_t index, RegistrationUpdate update);

    /// Answers every resolution from now on with `update`, at once.
    void answerAll(ResolveUpdate update);

private:
    class HeldAsk;
    struct Shared;

    static std::shared_ptr<Shared> makeShared();
    std::unique_ptr<Ask> add(Record record);

    const std::shared_ptr<Shared> shared_ = makeShared();
};

} // namespace quillbox
