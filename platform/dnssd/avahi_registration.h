#pragma once

#include "platform/dnssd/avahi_api.h"
#include "platform/dnssd/messages.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>

namespace quillbox::dnssd {

/// One service published, on a host name of its own or the computer's. The service is one entry
/// group, and the addresses of each interface are another, so that a change on one interface leaves
/// the rest published. Destroying it withdraws all, with goodbyes.
class AvahiRegistration final {
public:
    using Clock = std::chrono::steady_clock;

    struct Outcome {
        enum class State { Underway, Established, Collision, Failed };

        State state = State::Underway;
        Collision::Of collision = Collision::Of::Service;
        int error = 0; ///< in Failed: one of Avahi's error numbers
    };

    /// Publishes nothing yet. `changed` is called whenever Avahi says what became of a part; it
    /// must not call back.
    AvahiRegistration(AvahiApi& api, RegisterRequest request, std::function<void()> changed);
    AvahiRegistration(const AvahiRegistration&) = delete;
    AvahiRegistration& operator=(const AvahiRegistration&) = delete;
    ~AvahiRegistration();

    /// At the next `publish` everything is put up anew.
    void demandAll() { isAllDemanded = true; }

    /// At the next `publish` the records of those interfaces whose addresses differ are touched.
    void demand(const std::vector<HostAddress>& addresses);

    /// Puts up what is demanded.
    void publish();

    Outcome outcome() const;

    /// Probing takes about a second. In Avahi 0.8 an interface that goes away in the middle leaves
    /// its group registering for ever, so one that is still underway by then is put up anew, and is
    /// given longer.
    Clock::time_point deadlineFrom(Clock::time_point now) const { return now + patience; }
    void becomeOverdue();

    bool isOnComputersHostName() const { return request.hostName.empty(); }

    /// Whether it has been reported as established.
    bool isReported = false;

private:
    class Group;

    void publishAll();
    void publishService();
    void publishDifferences();
    void publishAddresses(int interfaceIndex, const std::set<Address>& addresses);

    AvahiApi& api;
    const RegisterRequest request;
    const std::function<void()> changed;
    std::map<int, std::set<Address>> addressesByInterface; ///< as they are demanded
    std::map<int, std::set<Address>> publishedAddresses;
    bool isAllDemanded = true;
    std::unique_ptr<Group> service; ///< none before it was published
    std::map<int, std::unique_ptr<Group>> hosts;
    Clock::duration patience;
};

} // namespace quillbox::dnssd
