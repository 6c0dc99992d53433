#pragma once

#include "platform/posix/file_descriptor.h"

#include <cerrno>
#include <chrono>
#include <ctime>
#include <utility>

#include <sys/file.h>

namespace quillbox {

/// An exclusive lock (flock(2)) of an open file or folder, released by the destructor, or by the
/// kernel when the process dies.
class FileLock final {
public:
    /// Blocks until the lock is held, for at most `limit`.
    FileLock(FileDescriptor opened, std::chrono::milliseconds limit) : file_(std::move(opened))
    {
        constexpr timespec kPause{.tv_sec = 0, .tv_nsec = 2'000'000};
        // By polling, because flock() has no timeout.
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (file_.isOpen()) {
            isHeld_ = ::flock(file_.get(), LOCK_EX | LOCK_NB) == 0;
            if (isHeld_ || errno != EWOULDBLOCK || std::chrono::steady_clock::now() > deadline)
                return;
            ::nanosleep(&kPause, nullptr);
        }
    }

    bool isHeld() const { return isHeld_; }

private:
    const FileDescriptor file_;
    bool isHeld_ = false;
};

} // namespace quillbox
