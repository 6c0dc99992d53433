#pragma once

#include "platform/dns_sd.h"
#include "platform/dnssd/operations/center.h"
#include "platform/dnssd/operations/report.h"
#include "platform/values/backoff.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace quillbox::dnssd {

/// How many services of one type are listed, and how many sightings of each are tracked.
inline constexpr std::size_t kMaximumServices = 256;
inline constexpr std::size_t kMaximumSightings = 64;

/// The minimum time between two sets: at most ten a second.
inline constexpr std::chrono::milliseconds kSetInterval{100};

/// When a full list has free capacity again, the query is repeated after this time to find the
/// services that were left out, because an engine reports each service once. Long enough that a
/// flood of services that comes and goes does not cause a flood of queries.
inline constexpr std::chrono::seconds kRoomInterval{2};

/// Maintains the set of the services of one type. A service exists for as long as some interface
/// and address family sees it, unless its SRV record has expired: a phone that left without a
/// goodbye is still named by PTR records for more than an hour.
///
/// A new engine knows nothing at first. Services that were listed before keep their place in the
/// list, until the new engine sees them go, or neither sees them nor finds their SRV record within
/// `kSilenceLimit`. While there are more services than the list holds, silence proves nothing,
/// because the flood may also fill the engine's cache.
///
/// Belongs to the center's queue.
class ServiceBrowse final : public std::enable_shared_from_this<ServiceBrowse>,
                            private EngineLink::Client,
                            private QueryObserver {
public:
    using Report = dnssd::Report<DnsSd::BrowseUpdate>;

    ServiceBrowse(Center& itsCenter, Report updates, std::string serviceType);

    /// Called once, when the object is held by a shared pointer.
    void start();

private:
    struct Service {
        std::string key;
        ServiceEndpoint endpoint;
        std::set<Sighting> sightings; ///< by the current query
        /// The liveness check: an active query for the SRV record. Null until the service is
        /// listed.
        std::shared_ptr<const LocationQuery> life;
    };

    void engineUp() override;
    void engineDown(std::error_code error) override;
    void engineEvent(const Event& event) override;
    void queryChanged() override { setChanged(); }

    void ask();
    void addSighting(const ServiceAnswer& sighted);
    void addService(const ServiceAnswer& sighted, std::string key);
    void removeSighting(const ServiceAnswer& gone);
    void failed(DnsSdError error);
    void wait(std::error_code error);

    void judgeSilence();
    bool isGone(const Service& service) const;
    void leaveOut();
    void askForWhatWasLeftOut();

    void setChanged();
    void scheduleFlush(std::chrono::milliseconds delay);
    void flush();

    Center& center;
    Report report;
    const std::string type;

    std::vector<Service> services; ///< in the order first seen
    std::vector<ServiceEndpoint> lastSet;
    /// The current query has been active for so long that whom it has not seen is gone.
    bool isSilenceFinal = false;
    /// The engine came up after services were listed, and may not have heard of them yet. Any other
    /// knows all that there is, and reports it at once when the query is sent again.
    bool isEngineNew = false;
    bool hasFailed = false;
    /// How often the current query saw a service for which the list had no room.
    std::size_t leftOut = 0;
    bool isFlooded = false; ///< when silence was last judged
    bool hasWarned = false;
    bool isAskingAnew = false;
    bool isScheduled = false;
    bool isChanged = false;
    Backoff backoff{kShortestPause, kLongestPause};
};

} // namespace quillbox::dnssd
