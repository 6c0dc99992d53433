#pragma once

#include "platform/dnssd/dns_sd.h"
#include "platform/dnssd/engine_link.h"
#include "platform/dnssd/growing_pause.h"
#include "platform/dnssd/record_question.h"
#include "platform/dnssd/report.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace quillbox::dnssd {

/// How many services of one type are listed, and how many sightings of one are counted.
inline constexpr std::size_t kMaximumServices = 256;
inline constexpr std::size_t kMaximumSightings = 64;

/// The time between two sets: ten a second at the most.
inline constexpr std::chrono::milliseconds kSetInterval{100};

/// From the moment when a full list has room again to the question for what it left out: an engine
/// tells of a service once. Long enough that a flood which comes and goes is not answered with one
/// of questions.
inline constexpr std::chrono::seconds kRoomInterval{2};

/// Keeps the set of the services of one type. A service is there for as long as some interface and
/// address family sees it, unless its SRV record has run out: a phone that left without a goodbye
/// is still named by PTR records for more than an hour.
///
/// Belongs to the center's queue.
class ServiceBrowse final : public std::enable_shared_from_this<ServiceBrowse>,
                            private EngineLink::Client {
public:
    using Report = dnssd::Report<DnsSd::BrowseUpdate>;

    ServiceBrowse(EngineLink& engineLink, DispatchQueue& centerQueue, LocationPool& locationPool,
                  std::string serviceType, Report updates);
    ~ServiceBrowse();
    ServiceBrowse(const ServiceBrowse&) = delete;
    ServiceBrowse& operator=(const ServiceBrowse&) = delete;

    /// Called once, when the object is held by a shared pointer.
    void start();

private:
    class Life;

    struct Service {
        std::string key;
        ServiceEndpoint endpoint;
        std::set<Sighting> sightings; ///< empty when only an engine that went has seen it
        std::unique_ptr<Life> life;
    };

    void engineUp() override;
    void engineDown(std::error_code error) override;
    void engineEvent(const Event& event) override;

    void ask();
    void forgetSightings();
    void addSighting(const ServiceFound& sighted);
    void addService(const ServiceFound& sighted, std::string key);
    void removeSighting(const ServiceLost& gone);
    void endReplacement();
    void failed(DnsSdError error);
    void wait(std::error_code error);

    void leaveOut();
    void askForWhatWasLeftOut();

    void setChanged();
    void scheduleFlush(std::chrono::milliseconds delay);
    void flush();

    EngineLink& link;
    DispatchQueue& queue;
    LocationPool& locations;
    const std::string type;
    Report report;

    AskId id = 0;
    std::vector<Service> services; ///< in the order in which they were first seen
    std::vector<ServiceEndpoint> lastSet;
    /// The browse was asked anew and what it finds is collected: the last set stands meanwhile.
    bool isReplacing = false;
    bool hasFailed = false;
    bool hasLeftOut = false;
    bool hasWarned = false;
    bool isAskingAnew = false;
    bool isScheduled = false;
    bool isChanged = false;
    GrowingPause pause{GrowingPause::First::Shortest};
};

} // namespace quillbox::dnssd
