#include "platform/dnssd/operations/service_browse.h"

#include "platform/dnssd/operations/names.h"
#include "platform/values/standard_error.h"
#include "platform/values/text.h"

#include <algorithm>
#include <utility>

namespace quillbox::dnssd {

namespace {

constexpr std::size_t kMaximumDomainSize = 255;

std::string keyOf(const ServiceEndpoint& service)
{
    return folded(service.name) + '\0' + folded(service.domain);
}

bool isDomain(const std::string& domain)
{
    return !domain.empty() && domain.size() <= kMaximumDomainSize
           && domain.find('\0') == std::string::npos && isValidUtf8(domain);
}

} // namespace

ServiceBrowse::ServiceBrowse(Center& itsCenter, Report updates, std::string serviceType)
    : Client(itsCenter.link),
      center(itsCenter),
      report(std::move(updates)),
      type(std::move(serviceType))
{
}

void ServiceBrowse::start()
{
    if (!isServiceType(type))
        failed(DnsSdError::InvalidType);
    else
        readState();
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
    if (!hasFailed)
        wait(error);
}

void ServiceBrowse::engineEvent(const Event& event)
{
    if (const auto* answer = std::get_if<ServiceAnswer>(&event))
        answer->change == Change::Found ? addSighting(*answer) : removeSighting(*answer);
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
    send(BrowseRequest{0, type});
    isSilenceFinal = services.empty();
    if (!isSilenceFinal) {
        const std::chrono::milliseconds limit = isEngineNew ? kSilenceLimit : kSettlingLimit;
        center.queue->asyncAfter(limit, [weak = weak_from_this(), asked = id] {
            if (const auto self = weak.lock(); self && self->id == asked)
                self->judgeSilence();
        });
    }
    setChanged();
}

void ServiceBrowse::addSighting(const ServiceAnswer& sighted)
{
    // A PTR record can point anywhere: to a service of another type, or to something invalid.
    const auto& [name, itsType, domain] = sighted.value;
    if (!isSameName(itsType, type) || !isInstanceName(name) || !isDomain(domain))
        return;
    std::string key = keyOf(sighted.value);
    const auto service = std::ranges::find(services, key, &Service::key);
    if (service == services.end())
        addService(sighted, std::move(key));
    else if (service->sightings.size() < kMaximumSightings)
        service->sightings.insert(sighted.sighting);
}

void ServiceBrowse::addService(const ServiceAnswer& sighted, std::string key)
{
    if (services.size() >= kMaximumServices) {
        leaveOut();
        return;
    }
    Service service;
    service.key = std::move(key);
    service.endpoint = {sighted.value.name, type, sighted.value.domain};
    service.sightings.insert(sighted.sighting);
    services.push_back(std::move(service));
    setChanged();
}

void ServiceBrowse::removeSighting(const ServiceAnswer& gone)
{
    const auto service = std::ranges::find(services, keyOf(gone.value), &Service::key);
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
        end();
        ask();
    } else {
        isSilenceFinal = true;
        isEngineNew = false;
        setChanged();
    }
}

bool ServiceBrowse::isGone(const Service& service) const
{
    return service.life->isLost() && !(service.life->isSilent() && isFlooded);
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
    center.queue->asyncAfter(kRoomInterval, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self)
            return;
        self->isAskingAnew = false;
        if (self->id == 0 || self->leftOut == 0 || self->services.size() >= kMaximumServices)
            return;
        self->end();
        self->ask();
    });
}

void ServiceBrowse::failed(DnsSdError error)
{
    end();
    if (error == DnsSdError::InvalidType || error == DnsSdError::InvalidName) {
        hasFailed = true;
        report.deliver({DnsSd::BrowseUpdate::State::Failed, error, {}});
        return;
    }
    wait(error);
    center.queue->asyncAfter(backoff.next(), [weak = weak_from_this()] {
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
        center.queue->asyncAfter(delay, std::move(work));
    else
        center.queue->async(std::move(work));
}

void ServiceBrowse::flush()
{
    if (id == 0 || !std::exchange(isChanged, false))
        return;
    if (isSilenceFinal) {
        std::erase_if(services, [](const Service& service) {
            return service.sightings.empty() && (!service.life || service.life->records().empty());
        });
    }
    if (leftOut > 0 && services.size() < kMaximumServices)
        askForWhatWasLeftOut();
    std::vector<ServiceEndpoint> set;
    for (Service& service : services) {
        if (!service.life)
            service.life = center.locations.query({0, service.endpoint}, *this);
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
