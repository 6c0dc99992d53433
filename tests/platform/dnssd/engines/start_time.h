#pragma once

#include <chrono>

namespace quillbox::dnssd {

/// When a test begins whose time is a number.
inline constexpr std::chrono::steady_clock::time_point kStart{};

} // namespace quillbox::dnssd
