#pragma once

#include <chrono>

namespace quillbox {

/// How long a test waits for what happens at once on a computer that has nothing else to do.
inline constexpr std::chrono::seconds kPatience{20};

} // namespace quillbox
