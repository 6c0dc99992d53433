#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dns_sd.h"
#include "platform/network_monitor.h"
#include "platform/values/system_facts.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace quillbox {

/// Looks for services of one type, and resolves each of them, until it is destroyed. The handlers
/// run on the queue that the constructor gets, and use the object.
class PhoneSurvey final {
public:
    /// `type` is like "_smb._tcp". `dnsSd` must outlive the object.
    PhoneSurvey(DnsSd& dnsSd, std::shared_ptr<DispatchQueue> queue, const std::string& type);
    ~PhoneSurvey();

    PhoneSurvey(const PhoneSurvey&) = delete;
    PhoneSurvey& operator=(const PhoneSurvey&) = delete;

    /// What was found until now, at most 32 phones with 4 addresses each. Tries the ports, those
    /// that `mayDial` permits, and blocks for at most `connecting`. Called when no handler can run
    /// any more: on the queue, or after that was shut down.
    PhonesFacts facts(const NetworkMonitor& monitor, std::chrono::milliseconds connecting) const;

private:
    struct Phone;

    void update(const DnsSd::BrowseUpdate& update);
    std::unique_ptr<Phone> take(const ServiceEndpoint& service);

    DnsSd& dnsSd;
    const std::shared_ptr<DispatchQueue> queue;
    bool isEngineUp = false;
    std::vector<std::unique_ptr<Phone>> phones;
    const std::unique_ptr<DnsSd::Subscription> browse;
};

/// The survey of this computer's network, as the program sees it: with the system's avahi-daemon
/// or else the embedded engine. Publishes nothing. Browses for `browsing`, then tries the ports for
/// `connecting`; stopping the engine can take another half second. Blocks; any thread.
PhonesFacts surveyPhones(const std::string& type, std::chrono::milliseconds browsing,
                         std::chrono::milliseconds connecting);

} // namespace quillbox
