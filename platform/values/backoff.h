#pragma once

#include <algorithm>
#include <chrono>

namespace quillbox {

/// Exponential backoff: the delay before the next attempt doubles up to a maximum.
class Backoff final {
public:
    using Delay = std::chrono::milliseconds;

    /// The first delay is followed by its double, but at least by `shortest`, which is how a
    /// backoff can start with no delay at all.
    Backoff(Delay firstDelay, Delay shortestDelay, Delay longestDelay)
        : first(firstDelay), shortest(shortestDelay), longest(longestDelay), current(firstDelay)
    {
    }
    Backoff(Delay firstDelay, Delay longestDelay) : Backoff(firstDelay, firstDelay, longestDelay) {}

    /// Called after each failure: how long to wait now.
    Delay next()
    {
        const Delay delay = current;
        current = std::clamp(2 * current, shortest, longest);
        return delay;
    }

    /// Called after success: the next delay is the first one.
    void reset() { current = first; }

private:
    Delay first;
    Delay shortest;
    Delay longest;
    Delay current;
};

} // namespace quillbox
