#pragma once

#include "bench/poller.h"
#include "bench/tcp.h"

#include <cstddef>
#include <vector>

namespace quillbox::bench {

/// Transfers as many bytes as possible over some streams in some time. Only received bytes count,
/// so data that is still buffered at the end does not.
struct Flood {
    std::vector<Target> targets; ///< the streams are distributed among them
    std::size_t streams = 1;
    Clock::duration time{};
};

/// The client sends. Prints bytes and seconds.
void upload(const Flood& flood);

/// The client receives. Prints bytes and seconds.
void download(const Flood& flood);

} // namespace quillbox::bench
