#include "platform/dnssd/operations/registration.h"

#include "platform/dnssd/operations/names.h"
#include "platform/values/text.h"

#include <algorithm>
#include <utility>

namespace quillbox::dnssd {

Registration::Registration(Center& itsCenter, Report updates, ServiceRegistration wanted,
                           std::uint16_t servicePort)
    : Client(itsCenter.link),
      center(itsCenter),
      report(std::move(updates)),
      service(std::move(wanted)),
      port(servicePort)
{
}

void Registration::start()
{
    if (!isInstanceName(service.name))
        return fail(DnsSdError::InvalidName);
    if (!isServiceType(service.type))
        return fail(DnsSdError::InvalidType);
    ownEntry.emplace(center.ownServices, service, port);
    // The loopback address is known from the start; the host name is final only once an engine has
    // reported the computer's own.
    ownEntry->claimHost(link.hostName(), hostNumber);
    readState();
}

void Registration::engineUp()
{
    if (ownEntry)
        ask();
}

void Registration::engineDown(std::error_code error)
{
    if (!ownEntry)
        return;
    after(kNameKept, [](Registration& self) { self.establishedAs.clear(); });
    ownEntry->setPublished(false);
    tell(State::Waiting, error);
}

void Registration::engineEvent(const Event& event)
{
    if (std::holds_alternative<Registered>(event)) {
        established();
    } else if (const auto* collision = std::get_if<Collision>(&event)) {
        logRequest(collision->of == Collision::Of::Service ? "has a name conflict"
                                                           : "has a host name conflict");
        collided(collision->of);
    } else if (const auto* failure = std::get_if<Failed>(&event)) {
        logRequest(make_error_code(failure->error).message());
        refused(failure->error);
    }
}

void Registration::localAddressesChanged()
{
    if (id == 0)
        return;
    auto current = center.localAddresses.hostAddresses(ownEntry->loopback());
    if (current == addresses)
        return;
    addresses = std::move(current);
    link.updateAddresses({id, addresses});
}

void Registration::ask()
{
    ownEntry->claimHost(link.hostName(), hostNumber);
    addresses = center.localAddresses.hostAddresses(ownEntry->loopback());
    RegisterRequest request;
    request.name = alternativeName(service.name, nameNumber);
    request.type = service.type;
    request.port = port;
    request.hostName = ownEntry->hostName();
    request.addresses = addresses;
    request.interfaceIndex = center.localAddresses.publishedOn();
    requestedName = request.name;
    requestedAt = center.log.now();
    requestedAs = request.name + '\0' + request.hostName;
    request.isOwnName = requestedAs == establishedAs;
    center.log.tell(LogCategory::Advertising,
                    [this] { return inDoubleQuotes(requestedName) + " is being registered"; });
    send(std::move(request));
    const std::size_t before = center.ownServices.count() - 1;
    const auto turns = static_cast<int>(1 + before / kRegistrationsAtOnce);
    after(turns * kRegistrationLimit,
          [](Registration& self) { self.refused(DnsSdError::Internal); });
}

void Registration::established()
{
    logRequest("is advertised");
    establishedAs = requestedAs;
    after(kEstablishedLong, [](Registration& self) { self.backoff.reset(); });
    ownEntry->setPublished(true);
    tell(State::Ready, {});
}

void Registration::collided(Collision::Of of)
{
    unsigned& number = of == Collision::Of::Service ? nameNumber : hostNumber;
    number = numberAfter(number);
    askAfter(backoff.next(), DnsSdError::NameTaken);
}

void Registration::refused(DnsSdError error)
{
    switch (error) {
    case DnsSdError::InvalidName:
    case DnsSdError::InvalidType:
    case DnsSdError::NotPermitted:
        withdraw();
        return fail(error);
    case DnsSdError::NameTaken:
        return collided(Collision::Of::Service);
    case DnsSdError::EngineUnavailable:
    case DnsSdError::EngineNotStarted:
    case DnsSdError::NotFound:
    case DnsSdError::TooManyEntries: // while a flood fills the engine
    case DnsSdError::Internal:
        break;
    }
    askAfter(std::max(backoff.next(), kShortestPause), error);
}

void Registration::askAfter(std::chrono::milliseconds delay, std::error_code error)
{
    withdraw();
    ownEntry->setPublished(false);
    after(delay, &Registration::ask);
    tell(State::Waiting, error);
}

void Registration::withdraw()
{
    if (end())
        logRequest("is withdrawn");
    establishedAs.clear();
    ++step;
}

void Registration::fail(DnsSdError error)
{
    ownEntry.reset();
    tell(State::Failed, error);
}

void Registration::tell(State state, std::error_code error)
{
    report.deliver({state, error, alternativeName(service.name, nameNumber)});
}

void Registration::logRequest(const std::string& what)
{
    center.log.tell(LogCategory::Advertising, [&] {
        return inDoubleQuotes(requestedName) + ' ' + what + ", after "
               + durationText(center.log.now() - requestedAt);
    });
}

void Registration::after(std::chrono::milliseconds delay, std::function<void(Registration&)> action)
{
    auto work = [weak = weak_from_this(), expected = ++step, action = std::move(action)] {
        if (const auto self = weak.lock(); self && self->step == expected)
            action(*self);
    };
    if (delay.count() > 0)
        center.queue->asyncAfter(delay, std::move(work));
    else
        center.queue->async(std::move(work));
}

} // namespace quillbox::dnssd
