#pragma once

#include "platform/dnssd/avahi/avahi_api.h"
#include "platform/dnssd/avahi/publication_queue.h"
#include "platform/dnssd/engine/messages.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>

namespace quillbox::dnssd {

class AvahiRegistration;

/// Handles requests over one connection to Avahi and emits events in answer. Confined to the thread
/// of Avahi's loop.
///
/// Avahi's callbacks free nothing; they only record what happened to a query or registration.
/// The owner calls `tidy` after each loop iteration to act on it. The cost of an iteration depends
/// on what has changed in it, not on how much is active.
class AvahiSession final {
public:
    using Clock = std::chrono::steady_clock;

    /// `emit` must not call back into the session.
    AvahiSession(AvahiApi& api, std::function<void(Event)> emit);
    AvahiSession(const AvahiSession&) = delete;
    AvahiSession& operator=(const AvahiSession&) = delete;
    /// Withdraws everything, with goodbyes.
    ~AvahiSession();

    /// A request whose id is in use replaces the earlier request.
    void handle(const Request& request, Clock::time_point now);

    void tidy(Clock::time_point now);

    /// When `tidy` must be called even if nothing else happens.
    std::optional<Clock::time_point> nextDeadline() const;

    /// A call found Avahi unreachable. The session is unusable from then on; it emits no `Failed`
    /// for requests that it could not serve.
    bool isBroken() const { return broken; }

private:
    void start(const BrowseRequest& request, Clock::time_point now);
    void start(const LocationRequest& request, Clock::time_point now);
    void start(const AddressRequest& request, Clock::time_point now);
    void start(const RegisterRequest& request, Clock::time_point now);
    void start(const UpdateAddressesRequest& request, Clock::time_point now);
    void start(const StopRequest& request, Clock::time_point now);

    void ask(RequestId id, const std::function<std::unique_ptr<AvahiObject>(AvahiAnswers)>& open);
    void drop(RequestId id);
    void fail(RequestId id, int error);
    /// Publishes what a registration demands as soon as it is its turn.
    void publishInTurn(RequestId id, Clock::time_point now);
    void publishWhoseTurnItIs(Clock::time_point now);
    void publish(RequestId id, AvahiRegistration& registration, Clock::time_point now);
    void renewOverdue(Clock::time_point now);
    void endFailedQueries();
    void lookAtChanged(Clock::time_point now);
    void lookAt(RequestId id, AvahiRegistration& registration, Clock::time_point now);

    AvahiApi& api;
    std::function<void(Event)> emit;
    std::map<RequestId, std::unique_ptr<AvahiObject>> queries;
    std::map<RequestId, int> failedQueries; ///< since the last `tidy`, with Avahi error codes
    PublicationQueue publications;
    std::set<RequestId> changedRegistrations; ///< since the last `tidy`
    std::map<RequestId, std::unique_ptr<AvahiRegistration>> registrations;
    bool broken = false;
};

} // namespace quillbox::dnssd
