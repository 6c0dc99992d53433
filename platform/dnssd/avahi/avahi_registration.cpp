#include "platform/dnssd/avahi/avahi_registration.h"

#include "platform/dnssd/avahi/avahi_service_records.h"

#include <algorithm>
#include <utility>

#include <avahi-common/error.h>

namespace quillbox::dnssd {

namespace {

constexpr std::chrono::seconds kFirstPatience(3);
constexpr std::chrono::seconds kMaximumPatience(60);

std::map<int, std::set<Address>> byInterface(const std::vector<HostAddress>& addresses)
{
    std::map<int, std::set<Address>> result;
    for (const HostAddress& address : addresses)
        result[address.interfaceIndex].insert(address.address);
    return result;
}

} // namespace

/// An entry group and its outcome.
class AvahiRegistration::Group final : public AvahiGroupWatcher {
public:
    Group(AvahiApi& api, const std::function<void()>& theChanged)
        : changed(theChanged), group(api.makeGroup(*this))
    {
        if (!group)
            error = api.lastError() == AVAHI_OK ? AVAHI_ERR_FAILURE : api.lastError();
    }

    /// `addTo` returns an Avahi error code; after an error nothing more is added.
    template <class Add> void add(Add&& addTo)
    {
        if (error == AVAHI_OK)
            error = addTo(*group);
    }

    void commit()
    {
        if (error == AVAHI_OK)
            error = group->commit();
    }

    void onGroupState(AvahiEntryGroupState newState) override
    {
        state = newState;
        changed();
    }

    bool isEstablished() const { return state == AVAHI_ENTRY_GROUP_ESTABLISHED; }
    bool hasCollided() const
    {
        return error == AVAHI_ERR_COLLISION || state == AVAHI_ENTRY_GROUP_COLLISION;
    }
    /// An Avahi error code.
    int failure() const
    {
        return error == AVAHI_OK && state == AVAHI_ENTRY_GROUP_FAILURE ? AVAHI_ERR_FAILURE : error;
    }

private:
    const std::function<void()>& changed;
    AvahiEntryGroupState state = AVAHI_ENTRY_GROUP_UNCOMMITED;
    int error = AVAHI_OK;
    std::unique_ptr<AvahiGroup> group; // last: its construction may call onGroupState
};

AvahiRegistration::AvahiRegistration(AvahiApi& theApi, RegisterRequest theRequest,
                                     std::function<void()> theChanged)
    : api(theApi),
      request(std::move(theRequest)),
      changed(std::move(theChanged)),
      addressesByInterface(byInterface(this->request.addresses)),
      probing(this->request.isOwnName ? AvahiGroup::Probing::Done : AvahiGroup::Probing::Needed),
      patience(kFirstPatience)
{
}

AvahiRegistration::~AvahiRegistration() = default;

void AvahiRegistration::demand(const std::vector<HostAddress>& addresses)
{
    addressesByInterface = byInterface(addresses);
}

void AvahiRegistration::publish()
{
    if (std::exchange(isAllDemanded, false)) {
        service.reset();
        hosts.clear();
        publishService();
        // A conflict with a name on this computer is reported immediately; then no addresses are
        // published.
        if (service->failure() != AVAHI_OK)
            return;
    }
    std::erase_if(hosts, [this](const auto& host) {
        const auto demanded = addressesByInterface.find(host.first);
        return demanded == addressesByInterface.end() || demanded->second != host.second.addresses;
    });
    for (const auto& [interfaceIndex, addresses] : addressesByInterface) {
        if (!hosts.contains(interfaceIndex))
            hosts[interfaceIndex] = {addresses, publishAddresses(interfaceIndex, addresses)};
    }
    probing = AvahiGroup::Probing::Needed;
}

void AvahiRegistration::publishService()
{
    service = std::make_unique<Group>(api, changed);
    const auto records = serviceRecords(request, api.domainName());
    if (records.empty())
        service->add([](AvahiGroup& /*group*/) { return AVAHI_ERR_INVALID_SERVICE_NAME; });
    for (const auto& record : records)
        service->add([&](AvahiGroup& group) { return group.addRecord(record, probing); });
    service->commit();
}

std::unique_ptr<AvahiRegistration::Group>
AvahiRegistration::publishAddresses(int interfaceIndex, const std::set<Address>& addresses)
{
    auto host = std::make_unique<Group>(api, changed);
    for (const Address& address : addresses) {
        host->add([&](AvahiGroup& group) {
            return group.addAddress(request.hostName, {interfaceIndex, address}, probing);
        });
    }
    host->commit();
    return host;
}

AvahiRegistration::Outcome AvahiRegistration::outcome() const
{
    using State = Outcome::State;
    const auto failureOf = [](const Group& group, Collision::Of of) -> std::optional<Outcome> {
        if (group.hasCollided())
            return Outcome{State::Collision, of, AVAHI_OK};
        if (group.failure() != AVAHI_OK)
            return Outcome{State::Failed, of, group.failure()};
        return std::nullopt;
    };

    if (!service)
        return {};
    if (const auto failure = failureOf(*service, Collision::Of::Service))
        return *failure;
    bool isEstablished = service->isEstablished();
    for (const auto& [interfaceIndex, host] : hosts) {
        if (const auto failure = failureOf(*host.group, Collision::Of::Host))
            return *failure;
        isEstablished = isEstablished && host.group->isEstablished();
    }
    return {isEstablished ? State::Established : State::Underway, Collision::Of::Service, AVAHI_OK};
}

void AvahiRegistration::becomeOverdue()
{
    patience = std::min<Clock::duration>(2 * patience, kMaximumPatience);
    isAllDemanded = true;
}

} // namespace quillbox::dnssd
