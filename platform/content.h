#pragma once

#include <cstddef>
#include <memory>
#include <span>

namespace quillbox {

/// What a backend keeps behind a `Content`: bytes in memory, or bytes that never left the kernel.
class ContentStorage {
public:
    virtual ~ContentStorage() = default;

    virtual std::size_t size() const = 0;

    /// The bytes, when they are in this process's memory; else an empty span.
    virtual std::span<const std::byte> bytes() const = 0;
};

/// A move-only handle on bytes that were received and are to be sent on, 1 MiB at the most. Whoever
/// holds it owns the bytes; dropping it gives the room back to the backend that made it. It may be
/// moved between threads, but used by one at a time.
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

    /// The backend's own object, for the backend that made it; none for an empty content.
    ContentStorage* storage() const { return storage_.get(); }

private:
    std::unique_ptr<ContentStorage> storage_;
};

} // namespace quillbox
