#pragma once

#include <cerrno>
#include <cstddef>
#include <system_error>

#include <sys/types.h>

namespace quillbox {

/// The number of bytes that a call moved, or its error. No bytes and no error: end of the stream.
struct Transfer {
    std::size_t count = 0;
    std::error_code error;

    bool wouldBlock() const { return error == std::errc::operation_would_block; }
    bool isEnd() const { return count == 0 && !error; }
};

/// Makes a system call that returns a count or -1, and repeats it while a signal interrupts it.
template <typename Call> Transfer uninterrupted(Call call)
{
    ssize_t result = 0;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    if (result >= 0)
        return {.count = static_cast<std::size_t>(result), .error = {}};
    return {.count = 0, .error = {errno, std::system_category()}};
}

} // namespace quillbox
