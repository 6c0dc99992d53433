#pragma once

#include "platform/values/content.h"

#include <array>
#include <cstddef>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace quillbox {

class ChunkPool;

/// A buffer borrowed from the pool: filled first, then the storage of a content. Its destructor,
/// which may run on any thread, returns it to the pool. Keeps the pool alive.
class Chunk final : public ContentStorage {
public:
    Chunk(std::shared_ptr<ChunkPool> pool, std::unique_ptr<std::byte[]> buffer,
          std::size_t capacity);
    ~Chunk() override;

    Chunk(const Chunk&) = delete;
    Chunk& operator=(const Chunk&) = delete;

    std::size_t size() const override { return size_; }
    std::span<const std::byte> bytes() const override { return {buffer_.get(), size_}; }

    /// The unused rest of the buffer.
    std::span<std::byte> room() { return {buffer_.get() + size_, capacity_ - size_}; }

    /// Marks the first `count` bytes of `room()` as filled.
    void grow(std::size_t count) { size_ += count; }

private:
    const std::shared_ptr<ChunkPool> pool_;
    std::unique_ptr<std::byte[]> buffer_;
    const std::size_t capacity_;
    std::size_t size_ = 0;
};

/// A pool of buffers for received data that has not been sent yet.
///
/// A few free buffers of each size are kept for reuse, so that during a fast transfer the kernel
/// does not have to map and clear new memory for each chunk. What has been received is usually sent
/// at once, and its buffer returned; only a connection whose receiver is slow keeps one. The more
/// memory such connections hold, the smaller the chunks are, so that thousands of them do not hold
/// a large buffer each. Thread-safe.
class ChunkPool final : public std::enable_shared_from_this<ChunkPool> {
public:
    /// The chunk size that is available to every connection.
    static constexpr std::size_t kSmallSize = 16UL * 1024;

    /// Up to this many bytes in use, chunks may have any size; beyond it, `kMiddleSize`: a few
    /// connections with slow receivers do not shrink the chunks of all others.
    static constexpr std::size_t kLargeBudget = 4UL * 1024 * 1024;
    static constexpr std::size_t kMiddleSize = 64UL * 1024;

    /// Beyond this many bytes in use, chunks have `kSmallSize`.
    static constexpr std::size_t kBudget = 64UL * 1024 * 1024;

    /// Returns a buffer of `wanted` bytes, or fewer if many are in use or memory is short, but at
    /// least `minimum`; it may also be larger. Both are at most `kMaximumContentSize`. Throws
    /// `std::bad_alloc` if there is not even memory for a small buffer.
    std::unique_ptr<Chunk> borrow(std::size_t minimum, std::size_t wanted);

    /// The total size of the borrowed buffers.
    std::size_t lent() const;

    /// The total size of the free buffers kept for reuse.
    std::size_t kept() const;

private:
    friend class Chunk;

    struct Shelf {
        std::size_t size;
        std::size_t limit; ///< of the number of free buffers
        std::vector<std::unique_ptr<std::byte[]>> free;
    };

    std::size_t most(std::size_t wanted) const;
    std::unique_ptr<std::byte[]> take(std::size_t& size);
    void dropKept();
    Shelf& shelfFor(std::size_t size);
    void giveBack(std::unique_ptr<std::byte[]> buffer, std::size_t size);

    mutable std::mutex mutex_;
    std::array<Shelf, 4> shelves_{Shelf{kSmallSize, 32, {}}, Shelf{kMiddleSize, 16, {}},
                                  Shelf{256UL * 1024, 8, {}}, Shelf{1024UL * 1024, 4, {}}};
    std::size_t lent_ = 0;
};

} // namespace quillbox
