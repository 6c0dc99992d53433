#pragma once

#include "bench/tcp.h"

#include <cstddef>

namespace quillbox::bench {

/// Opens sessions one after the other, makes one small request on each, and keeps them idle until
/// standard input ends. Prints a line when all are open. For each line of input it makes one more
/// request on each and prints the times.
void holdSessions(const Target& target, std::size_t count);

} // namespace quillbox::bench
