#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

namespace quillbox::dnssd {

/// How long to wait before something that ended, or could not be had, is tried again: a pause that
/// doubles each time up to a maximum, and is short again once the thing has lived for a while.
/// Times are of the monotonic clock.
class EnginePause {
public:
    using Clock = std::chrono::steady_clock;

    EnginePause(Clock::duration theFirst, Clock::duration theMaximum,
                Clock::duration theSteadyAfter)
        : first(theFirst), maximum(theMaximum), steadyAfter(theSteadyAfter), current(theFirst)
    {
    }

    /// It lives since now.
    void began(Clock::time_point now) { since = now; }

    /// It ended, or could not be had: wait that long.
    Clock::duration next(Clock::time_point now)
    {
        if (since && now - *since >= steadyAfter)
            current = first;
        since.reset();
        const Clock::duration pause = current;
        current = std::min(2 * current, maximum);
        return pause;
    }

    /// There is news that makes the next try promising.
    void shorten() { current = first; }

private:
    Clock::duration first;
    Clock::duration maximum;
    Clock::duration steadyAfter;
    Clock::duration current;
    std::optional<Clock::time_point> since;
};

} // namespace quillbox::dnssd
