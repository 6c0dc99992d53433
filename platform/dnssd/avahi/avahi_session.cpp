#include "platform/dnssd/avahi/avahi_session.h"

#include "platform/dnssd/avahi/avahi_registration.h"
#include "platform/values/text.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include <avahi-common/domain.h>
#include <avahi-common/error.h>

namespace quillbox::dnssd {

namespace {

/// Whether the error means that Avahi cannot be reached, as opposed to a refusal.
bool isAvahiUnreachable(int error)
{
    return error == AVAHI_ERR_DISCONNECTED || error == AVAHI_ERR_NO_DAEMON
           || error == AVAHI_ERR_DBUS_ERROR || error == AVAHI_ERR_BAD_STATE;
}

DnsSdError dnsSdErrorOfAvahi(int error)
{
    if (isAvahiUnreachable(error))
        return DnsSdError::EngineUnavailable;
    switch (error) {
    case AVAHI_ERR_COLLISION:
        return DnsSdError::NameTaken;
    case AVAHI_ERR_INVALID_SERVICE_NAME:
    case AVAHI_ERR_INVALID_HOST_NAME:
    case AVAHI_ERR_INVALID_DOMAIN_NAME:
        return DnsSdError::InvalidName;
    case AVAHI_ERR_INVALID_SERVICE_TYPE:
    case AVAHI_ERR_INVALID_SERVICE_SUBTYPE:
        return DnsSdError::InvalidType;
    case AVAHI_ERR_NOT_PERMITTED:
    case AVAHI_ERR_ACCESS_DENIED:
        return DnsSdError::NotPermitted;
    case AVAHI_ERR_TOO_MANY_CLIENTS:
    case AVAHI_ERR_TOO_MANY_OBJECTS:
    case AVAHI_ERR_TOO_MANY_ENTRIES:
        return DnsSdError::TooManyEntries;
    case AVAHI_ERR_NOT_FOUND:
    case AVAHI_ERR_TIMEOUT:
        return DnsSdError::NotFound;
    default:
        return DnsSdError::Internal;
    }
}

/// libdbus aborts the process on text that is not UTF-8, and a zero byte would end a C string
/// early.
bool isText(const std::string& text)
{
    return isValidUtf8(text) && text.find('\0') == std::string::npos;
}

bool isHostName(const std::string& name)
{
    return !name.empty() && isText(name) && avahi_is_valid_domain_name(name.c_str()) != 0;
}

} // namespace

AvahiSession::AvahiSession(AvahiApi& theApi, std::function<void(Event)> theEmit)
    : api(theApi), emit(std::move(theEmit))
{
}

AvahiSession::~AvahiSession() = default;

void AvahiSession::handle(const Request& request, Clock::time_point now)
{
    if (!broken)
        std::visit([this, now](const auto& r) { start(r, now); }, request);
}

void AvahiSession::start(const BrowseRequest& request, Clock::time_point /*now*/)
{
    if (!isText(request.type)) {
        fail(request.id, AVAHI_ERR_INVALID_SERVICE_TYPE);
        return;
    }
    ask(request.id, [&](AvahiAnswers answers) { return api.browse(request.type, answers); });
}

void AvahiSession::start(const LocationRequest& request, Clock::time_point /*now*/)
{
    const auto& [instance, type, itsDomain] = request.service;
    if (!isText(instance) || !isText(type) || !isText(itsDomain)) {
        fail(request.id, AVAHI_ERR_INVALID_SERVICE_NAME);
        return;
    }
    const std::string domain = itsDomain.empty() ? api.domainName() : itsDomain;
    std::array<char, AVAHI_DOMAIN_NAME_MAX> name{};
    const int error = avahi_service_name_join(name.data(), name.size(), instance.c_str(),
                                              type.c_str(), domain.c_str());
    if (error != AVAHI_OK) {
        fail(request.id, error);
        return;
    }
    ask(request.id, [&](AvahiAnswers answers) {
        return api.lookUp(name.data(), AvahiApi::Record::Location, answers);
    });
}

void AvahiSession::start(const AddressRequest& request, Clock::time_point /*now*/)
{
    if (!isHostName(request.hostName)) {
        fail(request.id, AVAHI_ERR_INVALID_HOST_NAME);
        return;
    }
    const auto record = request.family == Family::IPv4 ? AvahiApi::Record::IPv4Address
                                                       : AvahiApi::Record::IPv6Address;
    ask(request.id,
        [&](AvahiAnswers answers) { return api.lookUp(request.hostName, record, answers); });
}

void AvahiSession::start(const RegisterRequest& request, Clock::time_point now)
{
    if (!isText(request.name) || !isHostName(request.hostName)) {
        fail(request.id, AVAHI_ERR_INVALID_SERVICE_NAME);
        return;
    }
    if (!isText(request.type)) {
        fail(request.id, AVAHI_ERR_INVALID_SERVICE_TYPE);
        return;
    }
    registrations[request.id] = std::make_unique<AvahiRegistration>(
        api, request, [this, id = request.id] { changedRegistrations.insert(id); });
    publishInTurn(request.id, now);
}

void AvahiSession::start(const UpdateAddressesRequest& request, Clock::time_point now)
{
    const auto found = registrations.find(request.id);
    if (found == registrations.end())
        return;
    found->second->demand(request.addresses);
    publishInTurn(request.id, now);
}

void AvahiSession::start(const StopRequest& request, Clock::time_point /*now*/)
{
    drop(request.id);
}

void AvahiSession::ask(RequestId id,
                       const std::function<std::unique_ptr<AvahiObject>(AvahiAnswers)>& open)
{
    auto query = open(AvahiAnswers(id, emit, failedQueries));
    if (query)
        queries[id] = std::move(query);
    else
        fail(id, api.lastError());
}

void AvahiSession::drop(RequestId id)
{
    queries.erase(id);
    failedQueries.erase(id);
    registrations.erase(id);
    publications.leave(id);
}

void AvahiSession::fail(RequestId id, int error)
{
    if (isAvahiUnreachable(error))
        broken = true;
    else
        emit(Failed{id, dnsSdErrorOfAvahi(error)});
}

void AvahiSession::publishInTurn(RequestId id, Clock::time_point now)
{
    if (publications.isUnderway(id)) {
        publish(id, *registrations.at(id), now);
        return;
    }
    publications.wait(id);
    publishWhoseTurnItIs(now);
}

void AvahiSession::publishWhoseTurnItIs(Clock::time_point now)
{
    while (const auto id = publications.next())
        publish(*id, *registrations.at(*id), now);
}

void AvahiSession::publish(RequestId id, AvahiRegistration& registration, Clock::time_point now)
{
    registration.publish();
    publications.begin(id, registration.deadlineFrom(now));
    changedRegistrations.insert(id); // Avahi may have refused it without a callback
}

void AvahiSession::tidy(Clock::time_point now)
{
    endFailedQueries();
    renewOverdue(now);
    lookAtChanged(now);
    // Registrations that are established or dropped free slots for waiting ones, which may in turn
    // be refused immediately.
    for (publishWhoseTurnItIs(now); !changedRegistrations.empty() && !broken;
         publishWhoseTurnItIs(now))
        lookAtChanged(now);
}

void AvahiSession::endFailedQueries()
{
    while (!failedQueries.empty() && !broken) {
        const auto [id, error] = *failedQueries.begin();
        drop(id);
        fail(id, error);
    }
}

void AvahiSession::renewOverdue(Clock::time_point now)
{
    // Queued again behind the waiting ones, whose slot it may have been holding.
    while (const auto id = publications.takeOverdue(now)) {
        registrations.at(*id)->becomeOverdue();
        publications.wait(*id);
    }
}

void AvahiSession::lookAtChanged(Clock::time_point now)
{
    while (!changedRegistrations.empty() && !broken) {
        const RequestId id = *changedRegistrations.begin();
        changedRegistrations.erase(changedRegistrations.begin());
        if (const auto found = registrations.find(id); found != registrations.end())
            lookAt(id, *found->second, now);
    }
}

void AvahiSession::lookAt(RequestId id, AvahiRegistration& registration, Clock::time_point now)
{
    using State = AvahiRegistration::Outcome::State;
    const auto outcome = registration.outcome();
    switch (outcome.state) {
    case State::Underway:
        // Avahi may start probing again on its own.
        if (!publications.isUnderway(id) && !publications.isWaiting(id))
            publications.begin(id, registration.deadlineFrom(now));
        break;
    case State::Established:
        if (publications.isUnderway(id))
            publications.leave(id);
        if (!std::exchange(registration.isReported, true))
            emit(Registered{id});
        break;
    case State::Collision:
        drop(id);
        emit(Collision{id, outcome.collision});
        break;
    case State::Failed:
        drop(id);
        fail(id, outcome.error);
        break;
    }
}

std::optional<AvahiSession::Clock::time_point> AvahiSession::nextDeadline() const
{
    return publications.nextDeadline();
}

} // namespace quillbox::dnssd
