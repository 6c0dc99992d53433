#pragma once

#include "bench/poller.h"
#include "bench/tcp.h"

#include <cstddef>

namespace quillbox::bench {

/// Sessions that are opened, make one small request, and are closed.
struct ShortSessions {
    Target target;
    std::size_t atOnce = 1;
    Clock::duration time{};
};

/// Prints the number of sessions, the percentiles of their times, the seconds that all took, and
/// how many failed.
void measureShortSessions(const ShortSessions& order);

} // namespace quillbox::bench
