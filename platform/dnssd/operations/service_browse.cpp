#include "platform/dnssd/operations/service_browse.h"

#include "platform/dnssd/operations/names.h"
#include "platform/values/standard_error.h"
#include "platform/values/text.h"

#include <algorithm>
#include <utility>

namespace quillbox::dnssd {

namespace {

constexpr std::size_t kMaximumDomainSize = 255;

std::string keyOf(const std::string& name, const std::string& domain)
{
    return folded(name) + '\0' + folded(domain);
}

bool isDomain(const std::string& domain)
{
    return !domain.empty() && domain.size() <= kMaximumDomainSize
           && domain.find('\0') == std::string::npos && isValidUtf8(domain);
}

} // namespace

/// The liveness check of a service: an active query for its SRV record.
class ServiceBrowse::LivenessCheck final : private QueryObserver {
public:
    explicit LivenessCheck(ServiceBrowse& owner) : browse(owner) {}
    LivenessCheck(const LivenessCheck&) = delete;
    LivenessCheck& operator=(const LivenessCheck&) = delete;
    ~LivenessCheck()
    {
        if (location)
            location->removeObserver(*this);
    }

    /// Starts the query, unless it is active already.
    void watch(LocationPool& pool, const ServiceEndpoint& endpoint)
    {
        if (location)
            return;
        location = pool.query({endpoint.name, endpoint.type, endpoint.domain});
        location->addObserver(*this);
        wasLost = location->isLost();
    }

    bool isFound() const { return location && !location->records().empty(); }
    bool isLost() const { return location && location->isLost(); }
    bool isSilent() const { return location && location->isSilent(); }

private:
    /// Each interface and family reports the same record, so most notifications change nothing.
    void queryChanged() override
    {
        const bool before = std::exchange(wasLost, isLost());
        if (before != wasLost)
            browse.setChanged();
    }

    ServiceBrowse& browse;
    std::shared_ptr<LocationQuery> location;
    bool wasLost = false;
};

ServiceBrowse::ServiceBrowse(EngineLink& engineLink, DispatchQueue& centerQueue,
                             LocationPool& locationPool, std::string serviceType, Report updates)
    : link(engineLink),
      queue(centerQueue),
      locations(locationPool),
      type(std::move(serviceType)),
      report(std::move(updates))
{
    link.attach(*this);
}

ServiceBrowse::~ServiceBrowse()
{
    services.clear();
    link.end(id);
    link.detach(*this);
}

void ServiceBrowse::start()
{
    if (!isServiceType(type))
        failed(DnsSdError::InvalidType);
    else if (link.isUp())
        engineUp();
    else if (link.state() == EngineLink::State::Down)
        engineDown(link.error());
}

void ServiceBrowse::engineUp()
{
    if (hasFailed)
        return;
    backoff.reset();
    isEngineNew = !services.empty();
    ask();
}

void ServiceBrowse::engineDown(std::error_code error)
{
    if (hasFailed)
        return;
    id = 0;
    wait(error);
}

void ServiceBrowse::engineEvent(const Event& event)
{
    if (const auto* sighted = std::get_if<ServiceFound>(&event))
        addSighting(*sighted);
    else if (const auto* gone = std::get_if<ServiceLost>(&event))
        removeSighting(*gone);
    else if (std::holds_alternative<Settled>(event))
        backoff.reset();
    else if (const auto* failure = std::get_if<Failed>(&event))
        failed(failure->error);
}

void ServiceBrowse::ask()
{
    for (Service& service : services)
        service.sightings.clear();
    leftOut = 0;
    id = link.send(*this, BrowseRequest{0, type});
    isSilenceFinal = services.empty();
    if (!isSilenceFinal) {
        const std::chrono::milliseconds limit = isEngineNew ? kSilenceLimit : kSettlingLimit;
        queue.asyncAfter(limit, [weak = weak_from_this(), asked = id] {
            if (const auto self = weak.lock(); self && self->id == asked)
                self->judgeSilence();
        });
    }
    setChanged();
}

void ServiceBrowse::addSighting(const ServiceFound& sighted)
{
    // A PTR record can point anywhere: to a service of another type, or to something invalid.
    if (!isSameName(sighted.type, type) || !isInstanceName(sighted.name)
        || !isDomain(sighted.domain))
        return;
    std::string key = keyOf(sighted.name, sighted.domain);
    const auto service = std::ranges::find(services, key, &Service::key);
    if (service == services.end())
        addService(sighted, std::move(key));
    else if (service->sightings.size() < kMaximumSightings)
        service->sightings.insert(sighted.sighting);
}

void ServiceBrowse::addService(const ServiceFound& sighted, std::string key)
{
    if (services.size() >= kMaximumServices) {
        leaveOut();
        return;
    }
    Service service;
    service.key = std::move(key);
    service.endpoint = {sighted.name, type, sighted.domain};
    service.sightings.insert(sighted.sighting);
    service.liveness = std::make_unique<LivenessCheck>(*this);
    services.push_back(std::move(service));
    setChanged();
}

void ServiceBrowse::removeSighting(const ServiceLost& gone)
{
    const auto service = std::ranges::find(services, keyOf(gone.name, gone.domain), &Service::key);
    if (service == services.end() || service->sightings.erase(gone.sighting) == 0)
        return;
    if (!service->sightings.empty())
        return;
    services.erase(service);
    setChanged();
}

void ServiceBrowse::judgeSilence()
{
    const auto seen = std::ranges::count_if(
        services, [](const Service& service) { return !service.sightings.empty(); });
    isFlooded = isEngineNew && static_cast<std::size_t>(seen) + leftOut >= kMaximumServices;
    if (isFlooded) {
        link.end(id);
        ask();
    } else {
        isSilenceFinal = true;
        isEngineNew = false;
        setChanged();
    }
}

bool ServiceBrowse::isGone(const Service& service) const
{
    return service.liveness->isLost() && !(service.liveness->isSilent() && isFlooded);
}

void ServiceBrowse::leaveOut()
{
    ++leftOut;
    if (!std::exchange(hasWarned, true))
        printToStandardError("There are more than " + std::to_string(kMaximumServices)
                             + " services of the type " + type + "; the others are not listed.");
}

void ServiceBrowse::askForWhatWasLeftOut()
{
    if (std::exchange(isAskingAnew, true))
        return;
    queue.asyncAfter(kRoomInterval, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self)
            return;
        self->isAskingAnew = false;
        if (self->id == 0 || self->leftOut == 0 || self->services.size() >= kMaximumServices)
            return;
        self->link.end(self->id);
        self->ask();
    });
}

void ServiceBrowse::failed(DnsSdError error)
{
    link.end(id);
    id = 0;
    if (error == DnsSdError::InvalidType || error == DnsSdError::InvalidName) {
        hasFailed = true;
        report.deliver({DnsSd::BrowseUpdate::State::Failed, error, {}});
        return;
    }
    wait(error);
    queue.asyncAfter(backoff.next(), [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (self && self->id == 0 && self->link.isUp())
            self->ask();
    });
}

void ServiceBrowse::wait(std::error_code error)
{
    report.deliver({DnsSd::BrowseUpdate::State::Waiting, error, {}});
}

void ServiceBrowse::setChanged()
{
    isChanged = true;
    // Deferred, so that events that arrive together cause one set.
    scheduleFlush(std::chrono::milliseconds(0));
}

void ServiceBrowse::scheduleFlush(std::chrono::milliseconds delay)
{
    if (std::exchange(isScheduled, true))
        return;
    auto work = [weak = weak_from_this()] {
        if (const auto self = weak.lock()) {
            self->isScheduled = false;
            self->flush();
        }
    };
    if (delay.count() > 0)
        queue.asyncAfter(delay, std::move(work));
    else
        queue.async(std::move(work));
}

void ServiceBrowse::flush()
{
    if (id == 0 || !std::exchange(isChanged, false))
        return;
    if (isSilenceFinal) {
        std::erase_if(services, [](const Service& service) {
            return service.sightings.empty() && !service.liveness->isFound();
        });
    }
    if (leftOut > 0 && services.size() < kMaximumServices)
        askForWhatWasLeftOut();
    std::vector<ServiceEndpoint> set;
    for (Service& service : services) {
        service.liveness->watch(locations, service.endpoint);
        if (!isGone(service))
            set.push_back(service.endpoint);
    }
    if (set != lastSet) {
        lastSet = set;
        scheduleFlush(kSetInterval);
    }
    report.deliver({DnsSd::BrowseUpdate::State::Ready, {}, std::move(set)});
}

} // namespace quillbox::dnssd
