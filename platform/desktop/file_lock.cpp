#include "platform/desktop/file_lock.h"

#include <cerrno>
#include <ctime>
#include <utility>

#include <sys/file.h>

namespace quillbox {

namespace {

constexpr timespec kLockPause{.tv_sec = 0, .tv_nsec = 2'000'000};

} // namespace

FileLock::FileLock(FileDescriptor opened, std::chrono::milliseconds limit)
    : file_(std::move(opened))
{
    // By polling, because flock() has no timeout.
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (file_.isOpen()) {
        isHeld_ = ::flock(file_.get(), LOCK_EX | LOCK_NB) == 0;
        if (isHeld_ || errno != EWOULDBLOCK || std::chrono::steady_clock::now() > deadline)
            return;
        ::nanosleep(&kLockPause, nullptr);
    }
}

} // namespace quillbox
