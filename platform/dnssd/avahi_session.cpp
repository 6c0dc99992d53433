#include "platform/dnssd/avahi_session.h"

#include "platform/dnssd/avahi_errors.h"
#include "platform/dnssd/avahi_registration.h"
#include "platform/text.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include <avahi-common/domain.h>
#include <avahi-common/error.h>

namespace quillbox::dnssd {

/// A browse or a lookup: passes answers on under its id.
class AvahiQuestion final : public AvahiAnswers {
public:
    AvahiQuestion(AskId theId, std::function<void(Event)>& theEmit) : id(theId), emit(theEmit) {}

    void onService(Change change, const Sighting& sighting, const char* name, const char* type,
                   const char* domain) override
    {
        // Avahi has the three for everything that it found.
        if (name == nullptr || type == nullptr || domain == nullptr)
            return;
        if (change == Change::Found)
            emit(ServiceFound{id, sighting, name, type, domain});
        else
            emit(ServiceLost{id, sighting, name, type, domain});
    }

    void onLocation(Change change, const Sighting& sighting,
                    const ServiceLocation& location) override
    {
        if (change == Change::Found)
            emit(LocationFound{id, sighting, location.hostName, location.port});
        else
            emit(LocationLost{id, sighting, location.hostName, location.port});
    }

    void onAddress(Change change, const Sighting& sighting, const Address& address) override
    {
        if (change == Change::Found)
            emit(AddressFound{id, sighting, address});
        else
            emit(AddressLost{id, sighting, address});
    }

    void onSettled() override
    {
        if (!std::exchange(isSettled, true))
            emit(Settled{id});
    }

    void onFailed(int error) override { failure = error; }

    std::optional<int> failure;
    std::unique_ptr<AvahiObject> object;

private:
    AskId id;
    std::function<void(Event)>& emit;
    bool isSettled = false;
};

namespace {

/// libdbus ends the process when it is handed a text that is not UTF-8, and C ends it at a zero.
bool isText(const std::string& text)
{
    return isValidUtf8(text) && text.find('\0') == std::string::npos;
}

bool isHostName(const std::string& name)
{
    return isText(name) && avahi_is_valid_domain_name(name.c_str()) != 0;
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
    drop(request.id);
    if (!isText(request.type)) {
        fail(request.id, AVAHI_ERR_INVALID_SERVICE_TYPE);
        return;
    }
    ask(request.id, [&](AvahiAnswers& answers) { return api.browse(request.type, answers); });
}

void AvahiSession::start(const LocationRequest& request, Clock::time_point /*now*/)
{
    drop(request.id);
    if (!isText(request.name) || !isText(request.type) || !isText(request.domain)) {
        fail(request.id, AVAHI_ERR_INVALID_SERVICE_NAME);
        return;
    }
    const std::string domain = request.domain.empty() ? api.domainName() : request.domain;
    std::array<char, AVAHI_DOMAIN_NAME_MAX> name{};
    const int error = avahi_service_name_join(name.data(), name.size(), request.name.c_str(),
                                              request.type.c_str(), domain.c_str());
    if (error != AVAHI_OK) {
        fail(request.id, error);
        return;
    }
    ask(request.id, [&](AvahiAnswers& answers) {
        return api.lookUp(name.data(), AvahiApi::Record::Location, answers);
    });
}

void AvahiSession::start(const AddressRequest& request, Clock::time_point /*now*/)
{
    drop(request.id);
    if (!isHostName(request.hostName)) {
        fail(request.id, AVAHI_ERR_INVALID_HOST_NAME);
        return;
    }
    const auto record = request.family == Family::IPv4 ? AvahiApi::Record::IPv4Address
                                                       : AvahiApi::Record::IPv6Address;
    ask(request.id,
        [&](AvahiAnswers& answers) { return api.lookUp(request.hostName, record, answers); });
}

void AvahiSession::start(const RegisterRequest& request, Clock::time_point now)
{
    drop(request.id);
    if (!isText(request.name) || !isText(request.domain)
        || (!request.hostName.empty() && !isHostName(request.hostName))) {
        fail(request.id, AVAHI_ERR_INVALID_SERVICE_NAME);
        return;
    }
    if (!isText(request.type)) {
        fail(request.id, AVAHI_ERR_INVALID_SERVICE_TYPE);
        return;
    }
    auto registration = std::make_unique<AvahiRegistration>(api, request);
    registration->publish(now);
    registrations[request.id] = std::move(registration);
}

void AvahiSession::start(const UpdateAddressesRequest& request, Clock::time_point now)
{
    if (const auto found = registrations.find(request.id); found != registrations.end())
        found->second->setAddresses(request.addresses, now);
}

void AvahiSession::start(const StopRequest& request, Clock::time_point /*now*/)
{
    drop(request.id);
}

void AvahiSession::ask(AskId id,
                       const std::function<std::unique_ptr<AvahiObject>(AvahiAnswers&)>& open)
{
    auto question = std::make_unique<AvahiQuestion>(id, emit);
    question->object = open(*question);
    if (!question->object) {
        fail(id, api.lastError());
        return;
    }
    questions[id] = std::move(question);
}

void AvahiSession::drop(AskId id)
{
    questions.erase(id);
    registrations.erase(id);
}

void AvahiSession::fail(AskId id, int error)
{
    if (isAvahiUnreachable(error))
        broken = true;
    else
        emit(Failed{id, dnsSdErrorOfAvahi(error)});
}

bool AvahiSession::endRegistrationOn(AskId id, const AvahiRegistration& registration)
{
    using State = AvahiRegistration::Outcome::State;
    const auto outcome = registration.outcome();
    if (outcome.state != State::Collision && outcome.state != State::Failed)
        return false;
    registrations.erase(id);
    if (outcome.state == State::Collision)
        emit(Collision{id, outcome.collision});
    else
        fail(id, outcome.error);
    return true;
}

void AvahiSession::tidy(Clock::time_point now)
{
    for (auto next = questions.begin(); next != questions.end() && !broken;) {
        const auto current = next++;
        if (const auto failure = current->second->failure) {
            const AskId id = current->first;
            questions.erase(current);
            fail(id, *failure);
        }
    }
    for (auto next = registrations.begin(); next != registrations.end() && !broken;) {
        const auto current = next++;
        AvahiRegistration& registration = *current->second;
        registration.renewIfOverdue(now);
        if (endRegistrationOn(current->first, registration))
            continue;
        if (!registration.isReported
            && registration.outcome().state == AvahiRegistration::Outcome::State::Established) {
            registration.isReported = true;
            emit(Registered{current->first});
        }
    }
}

std::optional<AvahiSession::Clock::time_point> AvahiSession::nextDeadline() const
{
    std::optional<Clock::time_point> earliest;
    for (const auto& [id, registration] : registrations) {
        const auto deadline = registration->deadline();
        if (deadline && (!earliest || *deadline < *earliest))
            earliest = deadline;
    }
    return earliest;
}

void AvahiSession::hostNameChanged(Clock::time_point now)
{
    for (const auto& [id, registration] : registrations) {
        if (registration->isOnComputersHostName())
            registration->publish(now);
    }
}

} // namespace quillbox::dnssd
