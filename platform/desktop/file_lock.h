#pragma once

#include "platform/posix/file_descriptor.h"

#include <chrono>

namespace quillbox {

/// An exclusive lock (flock(2)) of an open file or folder, released by the destructor, or by the
/// kernel when the process dies.
class FileLock final {
public:
    /// Blocks until the lock is held, for at most `limit`.
    FileLock(FileDescriptor opened, std::chrono::milliseconds limit);

    bool isHeld() const { return isHeld_; }

private:
    const FileDescriptor file_;
    bool isHeld_ = false;
};

} // namespace quillbox
