#pragma once

#include "platform/dnssd/messages.h"

#include <chrono>
#include <functional>
#include <optional>

namespace quillbox::dnssd {

struct AutomaticEngineTimes {
    /// How long a daemon that has not answered yet is waited for at the start.
    std::chrono::milliseconds startPatience{300};
    /// How long a daemon that went away may take to come back (a restart, an upgrade).
    std::chrono::milliseconds restartPatience{1000};
};

/// The rule of the automatic choice: the daemon whenever it is up, the embedded engine otherwise,
/// never both, and one sequence of EngineUp and EngineDown to the outside. It has no thread and no
/// clock of its own; times are of the monotonic clock.
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

    /// The daemon's engine has been started.
    void begin(Clock::time_point now) { embeddedStart = now + times.startPatience; }

    void handle(Source source, Event event, Clock::time_point now);

    /// When `elapse` is to be called.
    std::optional<Clock::time_point> deadline() const { return embeddedStart; }
    void elapse(Clock::time_point now);

    /// Where requests go; nowhere while no engine is up.
    std::optional<Source> active() const { return activeSource; }

private:
    void comeUp(Source source, Event event);
    void goDown(Event event);
    void handleDaemonDown(Event event, Clock::time_point now);

    AutomaticEngineTimes times;
    Actions actions;
    std::optional<Source> activeSource;
    std::optional<Clock::time_point> embeddedStart;
    bool isEmbeddedStarted = false;
    bool isReportedDown = false;
};

} // namespace quillbox::dnssd
