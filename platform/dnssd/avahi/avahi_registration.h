#pragma once

#include "platform/dnssd/avahi/avahi_api.h"
#include "platform/dnssd/engine/messages.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>

namespace quillbox::dnssd {

/// One published service, on its own host name. The service is one entry group and the addresses of
/// each interface are another, so that a change on one interface leaves the rest published.
/// Destroying it withdraws everything, with goodbyes.
class AvahiRegistration final {
public:
    using Clock = std::chrono::steady_clock;

    struct Outcome {
        enum class State { Underway, Established, Collision, Failed };

        State state = State::Underway;
        Collision::Of collision = Collision::Of::Service;
        int error = 0; ///< in Failed: an Avahi error code
    };

    /// Publishes nothing yet. `changed` is called whenever Avahi reports a new state of an entry
    /// group; it must not call back into this object.
    AvahiRegistration(AvahiApi& api, RegisterRequest request, std::function<void()> changed);
    AvahiRegistration(const AvahiRegistration&) = delete;
    AvahiRegistration& operator=(const AvahiRegistration&) = delete;
    ~AvahiRegistration();

    /// Makes the next `publish` replace the records of those interfaces whose addresses differ.
    void demand(const std::vector<HostAddress>& addresses);

    /// Publishes what has been demanded.
    void publish();

    Outcome outcome() const;

    /// Probing takes about a second. In Avahi 0.8, an interface that goes away during probing
    /// leaves its entry group in the registering state forever, so a registration that is still
    /// underway at the deadline is republished, with a longer deadline each time.
    Clock::time_point deadlineFrom(Clock::time_point now) const { return now + patience; }
    void becomeOverdue();

    /// Whether `Registered` has been emitted.
    bool isReported = false;

private:
    class Group;

    /// The addresses of one interface.
    struct Host {
        std::set<Address> addresses;
        std::unique_ptr<Group> group;
    };

    void publishService();
    std::unique_ptr<Group> publishAddresses(int interfaceIndex, const std::set<Address>& addresses);

    AvahiApi& api;
    const RegisterRequest request;
    const std::function<void()> changed;
    std::map<int, std::set<Address>> addressesByInterface; ///< as demanded
    bool isAllDemanded = true;
    AvahiGroup::Probing probing;    ///< for the names, by the next `publish`
    std::unique_ptr<Group> service; ///< null before the first `publish`
    std::map<int, Host> hosts;      ///< as published, by interface
    Clock::duration patience;
};

} // namespace quillbox::dnssd
