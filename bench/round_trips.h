#pragma once

#include "bench/poller.h"
#include "bench/tcp.h"

#include <cstddef>
#include <cstdint>

namespace quillbox::bench {

/// Requests of one size, each answered with as many bytes; every stream has one under way.
struct RoundTrips {
    Target target;
    std::size_t streams = 1;
    std::uint32_t size = 128;
    Clock::duration time{};
};

/// Prints how many there were, and the times from request to answer.
void measureRoundTrips(const RoundTrips& order);

} // namespace quillbox::bench
