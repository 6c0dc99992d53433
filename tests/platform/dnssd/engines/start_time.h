#pragma once

#include <chrono>

namespace quillbox::dnssd {

/// The start of time in tests that pass all time points explicitly.
inline constexpr std::chrono::steady_clock::time_point kStart{};

} // namespace quillbox::dnssd
