#pragma once

#include "platform/dnssd/avahi/avahi_api.h"
#include "platform/dnssd/avahi/avahi_session.h"
#include "platform/dnssd/engine/messages.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include <avahi-common/simple-watch.h>
#include <avahi-common/watch.h>

namespace quillbox::dnssd {

/// What both engine processes have in common: Avahi's event loop, the socket to the program, on
/// which this serves requests while there is an Avahi to serve them with, signs of life, and the
/// end. The process ends when the program closes the socket, when it violates the protocol, and on
/// SIGTERM.
class ProcessFrame final {
public:
    using Clock = std::chrono::steady_clock;

    /// The first thing that a process does: changes signal handling and gives up privileges that it
    /// does not need. Its end of the socket pair is `kSocketOfChild`.
    ProcessFrame();
    ProcessFrame(const ProcessFrame&) = delete;
    ProcessFrame& operator=(const ProcessFrame&) = delete;

    const AvahiPoll* poll() const { return avahi_simple_poll_get(loop.get()); }

    /// Begins a generation: reports EngineUp, and serves requests with `api`.
    void comeUp(AvahiApi& api, const std::string& hostName);

    /// Drops everything that was requested, and reports EngineDown, unless that was the last thing
    /// that was reported. The API is not used any more.
    void goDown();

    bool isUp() const { return session.has_value(); }

    /// Whether a call found Avahi unreachable since `comeUp`.
    bool isBroken() const { return session && session->isBroken(); }

    /// Runs one iteration of the loop, which waits until `deadline` at the latest. False once the
    /// process is to end.
    bool turn(std::optional<Clock::time_point> deadline = std::nullopt);

    /// Called before the API is freed: withdraws everything, and lets the process live for one more
    /// second, even if something that is still to be freed hangs.
    void end();

    /// For `main` to return.
    int exitStatus() const { return isPeerFalse ? EXIT_FAILURE : EXIT_SUCCESS; }

private:
    void watch(int descriptor, AvahiWatchCallback callback);
    void receive();
    void send(const Event& event);

    const int endSignal;
    const std::unique_ptr<AvahiSimplePoll, decltype(&avahi_simple_poll_free)> loop;
    std::optional<AvahiSession> session;
    Generation generation = 0;
    Clock::time_point nextSign = Clock::now(); ///< of life
    bool isReportedDown = false;
    bool isEnding = false;
    bool isPeerFalse = false;
};

} // namespace quillbox::dnssd
