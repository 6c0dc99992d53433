#pragma once

#include "platform/dnssd/avahi_api.h"
#include "platform/dnssd/messages.h"
#include "platform/dnssd/publication_queue.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>

namespace quillbox::dnssd {

class AvahiQuestion;
class AvahiRegistration;

/// Answers requests with events for as long as one connection to Avahi lasts. Confined to the
/// thread of Avahi's loop.
///
/// Avahi's callbacks free nothing and only note what became of a question or registration; the
/// owner calls `tidy` after each turn of the loop, and there the consequences are drawn. A turn
/// costs what has changed in it, however much stands.
class AvahiSession final {
public:
    using Clock = std::chrono::steady_clock;

    /// `emit` must not call back into the session.
    AvahiSession(AvahiApi& api, std::function<void(Event)> emit);
    AvahiSession(const AvahiSession&) = delete;
    AvahiSession& operator=(const AvahiSession&) = delete;
    /// Withdraws everything, with goodbyes.
    ~AvahiSession();

    /// A request whose id is in use replaces the one that has it.
    void handle(const Request& request, Clock::time_point now);

    void tidy(Clock::time_point now);

    /// When `tidy` wants to be called although nothing else happens.
    std::optional<Clock::time_point> nextDeadline() const;

    /// The computer has another host name now: what was published under its old one is published
    /// anew.
    void hostNameChanged(Clock::time_point now);

    /// A call found Avahi unreachable. The session is of no more use, and says nothing of what it
    /// could not do.
    bool isBroken() const { return broken; }

    /// How often a registration was looked at, so far: a measure of the work done.
    std::size_t looks() const { return lookCount; }

private:
    void start(const BrowseRequest& request, Clock::time_point now);
    void start(const LocationRequest& request, Clock::time_point now);
    void start(const AddressRequest& request, Clock::time_point now);
    void start(const RegisterRequest& request, Clock::time_point now);
    void start(const UpdateAddressesRequest& request, Clock::time_point now);
    void start(const StopRequest& request, Clock::time_point now);

    void ask(AskId id, const std::function<std::unique_ptr<AvahiObject>(AvahiAnswers&)>& open);
    void drop(AskId id);
    void fail(AskId id, int error);
    /// Publishes what a registration demands once it is its turn.
    void publishInTurn(AskId id, Clock::time_point now);
    void publishWhoseTurnItIs(Clock::time_point now);
    void publish(AskId id, AvahiRegistration& registration, Clock::time_point now);
    void renewOverdue(Clock::time_point now);
    void endFailedQuestions();
    void lookAtChanged(Clock::time_point now);
    void lookAt(AskId id, AvahiRegistration& registration, Clock::time_point now);

    AvahiApi& api;
    std::function<void(Event)> emit;
    std::map<AskId, std::unique_ptr<AvahiQuestion>> questions;
    std::set<AskId> failedQuestions; ///< since the last `tidy`
    PublicationQueue publications;
    std::set<AskId> changedRegistrations; ///< since the last `tidy`; some may be gone
    std::map<AskId, std::unique_ptr<AvahiRegistration>> registrations;
    std::size_t lookCount = 0;
    bool broken = false;
};

} // namespace quillbox::dnssd
