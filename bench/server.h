#pragma once

#include <cstdint>

namespace quillbox::bench {

/// Serves all roles on one port, until it is ended by a signal. Prints a line once it listens.
void serve(std::uint16_t port);

} // namespace quillbox::bench
