#pragma once

#include <cstddef>
#include <memory>
#include <span>

namespace quillbox {

/// A backend's storage of a `Content`: bytes in memory, or bytes that never left the kernel.
class ContentStorage {
public:
    virtual ~ContentStorage() = default;

    virtual std::size_t size() const = 0;

    /// The bytes if they are in this process's memory, else an empty span.
    virtual std::span<const std::byte> bytes() const = 0;
};

/// A move-only handle to received bytes, at most 1 MiB, to be sent on. The holder owns the bytes;
/// destroying the handle returns the storage to the backend that created it. May be moved between
/// threads, but is used by one at a time.
class Content {
public:
    Content() = default;
    explicit Content(std::unique_ptr<ContentStorage> storage) : storage_(std::move(storage)) {}

    std::size_t size() const { return storage_ ? storage_->size() : 0; }
    bool isEmpty() const { return size() == 0; }
    std::span<const std::byte> bytes() const
    {
        return storage_ ? storage_->bytes() : std::span<const std::byte>();
    }

    /// For the backend that created the content; null if it is empty.
    ContentStorage* storage() const { return storage_.get(); }

private:
    std::unique_ptr<ContentStorage> storage_;
};

} // namespace quillbox
