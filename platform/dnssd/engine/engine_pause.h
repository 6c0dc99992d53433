#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

namespace quillbox::dnssd {

/// Exponential backoff for restarting something that ended or failed to start: the delay doubles up
/// to a maximum, and returns to the first one after a run of `steadyAfter` or longer. Times are
/// monotonic.
class EnginePause {
public:
    using Clock = std::chrono::steady_clock;

    EnginePause(Clock::duration theFirst, Clock::duration theMaximum,
                Clock::duration theSteadyAfter)
        : first(theFirst), maximum(theMaximum), steadyAfter(theSteadyAfter), current(theFirst)
    {
    }

    /// It has been running since `now`.
    void began(Clock::time_point now) { since = now; }

    /// It ended or failed to start: returns how long to wait.
    Clock::duration next(Clock::time_point now)
    {
        if (since && now - *since >= steadyAfter)
            current = first;
        since.reset();
        const Clock::duration pause = current;
        current = std::min(2 * current, maximum);
        return pause;
    }

    /// The next attempt is likely to succeed: uses the first delay.
    void shorten() { current = first; }

private:
    Clock::duration first;
    Clock::duration maximum;
    Clock::duration steadyAfter;
    Clock::duration current;
    std::optional<Clock::time_point> since;
};

} // namespace quillbox::dnssd
