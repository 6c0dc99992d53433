#pragma once

#include <cstdint>

namespace quillbox::bench {

/// Serves all roles on one port until a signal ends it. Prints a line when it listens.
void serve(std::uint16_t port);

} // namespace quillbox::bench
