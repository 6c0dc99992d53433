#pragma once

#include <chrono>

namespace quillbox {

/// The timeout for something that happens immediately on an idle machine.
inline constexpr std::chrono::seconds kPatience{20};

} // namespace quillbox
