#pragma once

#include "platform/dnssd/engine/messages.h"

#include <chrono>
#include <functional>
#include <optional>

namespace quillbox::dnssd {

struct AutomaticEngineTimes {
    /// How long to wait at the start for a daemon that has not answered yet.
    std::chrono::milliseconds startPatience{300};
    /// How long to wait for a daemon that went down to come back (a restart, an upgrade).
    std::chrono::milliseconds restartPatience{1000};
    /// A daemon that goes down so soon after it was taken into use is not waited for: packets that
    /// crash it may come again and again, and it takes a second to start. It is used again when it
    /// has been up for the whole probation.
    std::chrono::milliseconds youngAge{5'000};
    std::chrono::milliseconds probation{30'000};
};

/// The rule of the automatic choice: use the daemon while it is up, and otherwise, or while it is
/// on probation, the embedded engine; never both. Reports a single sequence of EngineUp and
/// EngineDown. It has no thread and no clock of its own; times are monotonic.
class AutomaticEngineChoice final {
public:
    using Clock = std::chrono::steady_clock;

    enum class Source { Daemon, Embedded };

    struct Actions {
        std::function<void(Event)> emit;
        std::function<void()> startEmbedded;
        /// Returns when the embedded engine has withdrawn everything.
        std::function<void()> stopEmbedded;
    };

    AutomaticEngineChoice(AutomaticEngineTimes theTimes, Actions theActions)
        : times(theTimes), actions(std::move(theActions))
    {
    }

    /// Called when the daemon's engine has been started.
    void begin(Clock::time_point now) { embeddedStart = now + times.startPatience; }

    void handle(Source source, Event event, Clock::time_point now);

    /// When `elapse` must be called.
    std::optional<Clock::time_point> deadline() const;
    void elapse(Clock::time_point now);

    /// Whether the embedded engine has been started and not been stopped.
    bool usesEmbedded() const { return isEmbeddedStarted; }

    /// The engine that receives requests; none while no engine is up.
    std::optional<Source> active() const { return activeSource; }

private:
    void comeUp(Source source, Event event, Clock::time_point now);
    void goDown(Event event);
    void useDaemon(Clock::time_point now);
    void handleDaemonDown(Event event, Clock::time_point now);

    AutomaticEngineTimes times;
    Actions actions;
    std::optional<Source> activeSource;
    Clock::time_point activeSince;
    std::optional<Clock::time_point> embeddedStart;
    bool isDaemonOnProbation = false;
    std::optional<Event> daemonUp; ///< while it is up on probation
    Clock::time_point probationEnd;
    bool isEmbeddedStarted = false;
    bool isEmbeddedDown = false; ///< it has been started, and has said that it is not up
    bool isReportedDown = false;
};

} // namespace quillbox::dnssd
