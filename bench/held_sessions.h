#pragma once

#include "bench/tcp.h"

#include <cstddef>

namespace quillbox::bench {

/// Opens sessions one after the other, has one small request answered on each, and holds them idle
/// until standard input ends. Prints a line when all stand, and for each line of input the times of
/// one more request on each.
void holdSessions(const Target& target, std::size_t count);

} // namespace quillbox::bench
