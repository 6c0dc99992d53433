#pragma once

#include "bench/poller.h"
#include "bench/tcp.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quillbox::bench {

/// Transfers bytes over some streams for some time, as many as possible or at a pace (air.h). Only
/// received bytes count, so data that is still buffered at the end does not.
///
/// Prints a line when all connections are complete, begins when it reads one, prints the result
/// (the bytes, the seconds, and the latencies of the blocks), and keeps the connections open until
/// standard input ends. In this way a relay's costs of the transfer alone can be measured.
struct Flood {
    std::vector<Target> targets; ///< the streams are distributed among them
    std::size_t streams = 1;
    Clock::duration time{};
    std::uint64_t bytesPerSecond = 0; ///< of all streams; 0: as many as possible
};

/// The client sends.
void upload(const Flood& flood);

/// The client receives.
void download(const Flood& flood);

} // namespace quillbox::bench
