#pragma once

#include "platform/dnssd/avahi_api.h"
#include "platform/dnssd/messages.h"

#include <chrono>
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

    AvahiRegistration(AvahiApi& api, RegisterRequest request);
    AvahiRegistration(const AvahiRegistration&) = delete;
    AvahiRegistration& operator=(const AvahiRegistration&) = delete;
    ~AvahiRegistration();

    /// Puts everything up anew.
    void publish(Clock::time_point now);

    /// Touches the records of those interfaces whose addresses differ.
    void setAddresses(const std::vector<HostAddress>& addresses, Clock::time_point now);

    Outcome outcome() const;

    /// Probing takes about a second. In Avahi 0.8 an interface that goes away in the middle leaves
    /// its group registering for ever, so one that takes long is put up anew at this time.
    std::optional<Clock::time_point> deadline() const;
    void renewIfOverdue(Clock::time_point now);

    bool isOnComputersHostName() const { return request.hostName.empty(); }

    /// Whether it has been reported as established.
    bool isReported = false;

private:
    class Group;

    void publishService();
    void publishAddresses(int interfaceIndex, const std::set<Address>& addresses);
    void expectEstablishment(Clock::time_point now);

    AvahiApi& api;
    RegisterRequest request;
    std::map<int, std::set<Address>> addressesByInterface;
    std::unique_ptr<Group> service;
    std::map<int, std::unique_ptr<Group>> hosts;
    Clock::duration patience;
    std::optional<Clock::time_point> patienceEnds;
};

} // namespace quillbox::dnssd
