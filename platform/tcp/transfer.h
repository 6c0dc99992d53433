#pragma once

#include <cerrno>
#include <cstddef>
#include <system_error>

#include <sys/types.h>

namespace quillbox {

/// What a call moved, or why it did not. No bytes and no error is the end of the stream.
struct Transfer {
    std::size_t count = 0;
    std::error_code error;

    bool wouldBlock() const { return error == std::errc::operation_would_block; }
    bool isEnd() const { return count == 0 && !error; }
};

/// Makes a system call that gives a count or -1, anew for as long as signals interrupt it.
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
