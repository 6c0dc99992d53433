#pragma once

#include "platform/dns_sd.h"
#include "platform/dnssd/operations/center.h"
#include "platform/dnssd/operations/report.h"
#include "platform/values/backoff.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillbox::dnssd {

/// A registration that has been established for this long resets its backoff.
inline constexpr std::chrono::milliseconds kEstablishedLong{60'000};

/// How long names stay this program's while no engine defends them: the next engine announces them
/// without probing. Short enough that hardly anybody has taken them meanwhile.
inline constexpr std::chrono::milliseconds kNameKept{10'000};

/// How long an engine may take to establish or refuse a registration. Probing takes about a second;
/// an engine that loses a registration during probing is sent it again. The limit is extended by as
/// much for every `kRegistrationsAtOnce` registrations that may be queued before it.
inline constexpr std::chrono::milliseconds kRegistrationLimit{10'000};

/// Keeps one service published, on a host of its own, under its name or one derived from it. Keeps
/// the name in use when the engine comes back. Belongs to the center's queue.
class Registration final : public std::enable_shared_from_this<Registration>,
                           private EngineLink::Client {
public:
    using Report = dnssd::Report<DnsSd::RegistrationUpdate>;

    Registration(Center& itsCenter, Report updates, ServiceRegistration wanted,
                 std::uint16_t servicePort);
    ~Registration() override { withdraw(); }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    /// Called once, when the object is held by a shared pointer.
    void start();

private:
    using State = DnsSd::RegistrationUpdate::State;

    void engineUp() override;
    void engineDown(std::error_code error) override;
    void engineEvent(const Event& event) override;
    void localAddressesChanged() override;

    void ask();
    void established();
    void collided(Collision::Of of);
    void refused(DnsSdError error);
    void askAfter(std::chrono::milliseconds delay, std::error_code error);
    void withdraw();
    void fail(DnsSdError error);
    void tell(State state, std::error_code error);
    /// Logs what becomes of the last request.
    void logRequest(const std::string& what);
    /// Runs `action` after `delay`, unless another step comes first.
    void after(std::chrono::milliseconds delay, std::function<void(Registration&)> action);

    Center& center;
    Report report;
    const ServiceRegistration service;
    const std::uint16_t port;

    unsigned nameNumber = 1;
    unsigned hostNumber = 1;
    std::optional<OwnServices::Entry> ownEntry; ///< empty after a failure
    std::vector<HostAddress> addresses;         ///< as published
    std::string requestedName;                  ///< the service's, of the last request
    Log::Clock::time_point requestedAt;         ///< for the log
    std::string requestedAs;                    ///< service and host name of the last request
    std::string establishedAs; ///< the same of the last registration, while it is or may be ours
    Backoff backoff{Backoff::Delay(0), kShortestPause, kLongestPause};
    std::uint64_t step = 0; ///< counts steps, so that timers of earlier steps do nothing
};

} // namespace quillbox::dnssd
