#pragma once

#include "bench/poller.h"
#include "bench/tcp.h"

#include <cstddef>

namespace quillbox::bench {

/// Sessions that are opened, have one small request answered, and are closed.
struct ShortSessions {
    Target target;
    std::size_t atOnce = 1;
    Clock::duration time{};
};

/// Prints how many were done in how many seconds, the times of a session, and how many failed.
void measureShortSessions(const ShortSessions& order);

} // namespace quillbox::bench
