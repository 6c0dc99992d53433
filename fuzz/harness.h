#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>

/// What every harness has: libFuzzer calls it with input of its own making, the replay with the
/// kept cases. A harness promises more than not to crash where `require` says so.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace quillbox::fuzz {

/// Ends the process, so that the input is reported as a fault, unless `isTrue`.
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

/// Takes what stands before the next zero byte, and that byte, off the beginning.
inline std::string_view takePart(std::string_view& rest)
{
    const auto end = rest.find('\0');
    const auto part = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return part;
}

} // namespace quillbox::fuzz
