#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>

/// Implemented by every harness. libFuzzer calls it with generated input, replay.cpp with the
/// corpus. Besides not crashing, a harness checks properties with `require`.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace quillbox::fuzz {

/// Aborts the process unless `isTrue`, so that the input is reported as a failure.
inline void require(bool isTrue, const char* what)
{
    if (isTrue)
        return;
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
}

inline std::string_view textOf(const std::uint8_t* data, std::size_t size)
{
    return {reinterpret_cast<const char*>(data), size};
}

/// Removes and returns everything before the next zero byte; removes that byte too.
inline std::string_view takePart(std::string_view& rest)
{
    const auto end = rest.find('\0');
    const auto part = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return part;
}

} // namespace quillbox::fuzz
