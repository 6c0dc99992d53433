#pragma once

#include <utility>

#include <unistd.h>

namespace quillbox {

/// Owns a file descriptor, or none (-1).
class FileDescriptor final {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1))
    {
    }
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { reset(); }

    int get() const { return descriptor_; }
    bool isOpen() const { return descriptor_ >= 0; }

    /// Gives up ownership.
    int release() { return std::exchange(descriptor_, -1); }

    void reset()
    {
        if (isOpen())
            ::close(std::exchange(descriptor_, -1));
    }

private:
    int descriptor_ = -1;
};

} // namespace quillbox
