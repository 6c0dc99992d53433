#pragma once

#include "bench/poller.h"
#include "bench/tcp.h"

#include <cstddef>
#include <cstdint>

namespace quillbox::bench {

/// Requests of one size, each answered with as many bytes; every stream has one pending at a time.
struct RoundTrips {
    Target target;
    std::size_t streams = 1;
    std::uint32_t size = 128;
    Clock::duration time{};
};

/// Prints the number of round trips, and the percentiles of their times.
void measureRoundTrips(const RoundTrips& order);

} // namespace quillbox::bench
