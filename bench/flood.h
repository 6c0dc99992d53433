#pragma once

#include "bench/poller.h"
#include "bench/tcp.h"

#include <cstddef>
#include <vector>

namespace quillbox::bench {

/// As many bytes as go through over some streams in some time; counted by who receives them, so
/// that what lies in buffers at the end does not count.
struct Flood {
    std::vector<Target> targets; ///< the streams are shared out among them
    std::size_t streams = 1;
    Clock::duration time{};
};

/// The client sends. Prints bytes and seconds.
void upload(const Flood& flood);

/// The client receives. Prints bytes and seconds.
void download(const Flood& flood);

} // namespace quillbox::bench
