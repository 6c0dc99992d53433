#include "platform/linux/phone_survey.h"

#include "platform/dial/dialable_address.h"
#include "platform/dial/port_check.h"
#include "platform/dispatch/dispatch_pool.h"
#include "platform/dnssd/dns_sd_center.h"
#include "platform/dnssd/engine/automatic_engine.h"
#include "platform/netlink/netlink_monitor.h"
#include "platform/standard_error_log.h"
#include "platform/values/socket_address.h"

#include <algorithm>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace quillbox {

namespace {

/// A limit for networks with very many services.
constexpr std::size_t kMostPhones = 32;
constexpr std::size_t kMostAddresses = 4; ///< per phone

/// The ports of all phones, for `checkPorts` to try together.
struct Dialling {
    std::vector<PortToCheck> ports;
    std::vector<PortFacts*> results;
};

void describe(const DnsSd::ResolveUpdate& known, const NetworkMonitor& monitor, PhoneFacts& phone,
              Dialling& dialling)
{
    phone.hosts = known.hosts.size();
    // Keeps the pointers in `dialling.results` valid.
    phone.addresses.reserve(kMostAddresses);
    std::vector<Candidate> candidates;
    for (const auto& each : known.addresses)
        addCandidate(candidates, each.address, each.interfaceIndex);
    for (const auto& candidate : candidates) {
        const auto text = numericHost(candidate.address);
        const bool isNew = std::none_of(phone.addresses.begin(), phone.addresses.end(),
                                        [&text](const auto& a) { return a.address == text; });
        if (!text || !isNew || phone.addresses.size() == kMostAddresses)
            continue;
        phone.port = portOf(candidate.address);
        PortFacts& port = phone.addresses.emplace_back(PortFacts{.address = *text});
        const auto permission = mayDial(candidate, OwnPorts(), monitor);
        if (!permission) {
            port.state = PortFacts::State::NotDialled;
            continue;
        }
        dialling.ports.push_back({.address = candidate.address, .bindTo = permission.bindTo});
        dialling.results.push_back(&port);
    }
}

} // namespace

struct PhoneSurvey::Phone {
    ServiceEndpoint service;
    DnsSd::ResolveUpdate known = {};
    std::unique_ptr<DnsSd::Subscription> resolution = {};
};

PhoneSurvey::PhoneSurvey(DnsSd& asked, std::shared_ptr<DispatchQueue> ownQueue,
                         const std::string& type)
    : dnsSd(asked),
      queue(std::move(ownQueue)),
      browse(dnsSd.browse(type, queue, [this](const auto& found) { update(found); }))
{
}

PhoneSurvey::~PhoneSurvey() = default;

void PhoneSurvey::update(const DnsSd::BrowseUpdate& update)
{
    if (update.state != DnsSd::BrowseUpdate::State::Ready)
        return;
    isEngineUp = true;
    std::vector<std::unique_ptr<Phone>> current;
    for (const ServiceEndpoint& each : update.services) {
        if (current.size() < kMostPhones)
            current.push_back(take(each));
    }
    phones = std::move(current);
}

std::unique_ptr<PhoneSurvey::Phone> PhoneSurvey::take(const ServiceEndpoint& service)
{
    for (auto& each : phones) {
        if (each && each->service == service)
            return std::exchange(each, nullptr);
    }
    auto phone = std::make_unique<Phone>(Phone{.service = service});
    phone->resolution = dnsSd.resolve(service, queue, [service, this](const auto& update) {
        // Looked up, because the update may have been queued before its phone was removed.
        for (const auto& each : phones) {
            if (each->service == service)
                each->known = update;
        }
    });
    return phone;
}

PhonesFacts PhoneSurvey::facts(const NetworkMonitor& monitor,
                               std::chrono::milliseconds connecting) const
{
    PhonesFacts facts{.isEngineUp = isEngineUp ? Seen::Yes : Seen::No};
    facts.phones.resize(phones.size());
    Dialling dialling;
    for (std::size_t i = 0; i < phones.size(); ++i) {
        facts.phones[i].name = phones[i]->service.name;
        describe(phones[i]->known, monitor, facts.phones[i], dialling);
    }
    const auto states = checkPorts(dialling.ports, connecting);
    for (std::size_t i = 0; i < states.size(); ++i)
        dialling.results[i]->state = states[i];
    return facts;
}

PhonesFacts surveyPhones(const std::string& type, std::chrono::milliseconds browsing,
                         std::chrono::milliseconds connecting)
{
    const auto end = std::chrono::steady_clock::now() + browsing;
    DispatchPool pool;
    const auto monitor = makeNetworkMonitor(pool);
    const auto log = makeStandardErrorLog({});
    const auto queue = pool.makeQueue("doctor.dns-sd", QualityOfService::Utility);
    const auto dnsSd =
        makeDnsSd(dnssd::makeEngine(DnsSdMode::Automatic, queue, *log), queue, *monitor, *log);
    const PhoneSurvey survey(*dnsSd, pool.makeQueue("doctor.phones", QualityOfService::Utility),
                             type);
    // Nothing signals that every phone has answered, so this always takes the whole time.
    std::this_thread::sleep_until(end);
    // No handler runs after this.
    pool.shutdown();
    return survey.facts(*monitor, connecting);
}

} // namespace quillbox
