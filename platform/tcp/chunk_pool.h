#pragma once

#include "platform/content.h"

#include <array>
#include <cstddef>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace quillbox {

class ChunkPool;

/// A borrowed buffer that is being filled, and then a content's storage. It goes back to its pool,
/// which it keeps alive, when it is destroyed; on any thread.
class Chunk final : public ContentStorage {
public:
    Chunk(std::shared_ptr<ChunkPool> pool, std::unique_ptr<std::byte[]> buffer,
          std::size_t capacity);
    ~Chunk() override;

    Chunk(const Chunk&) = delete;
    Chunk& operator=(const Chunk&) = delete;

    std::size_t size() const override { return size_; }
    std::span<const std::byte> bytes() const override { return {buffer_.get(), size_}; }

    /// What is still to be filled.
    std::span<std::byte> room() { return {buffer_.get() + size_, capacity_ - size_}; }

    /// Counts the first `count` bytes of the room as filled.
    void grow(std::size_t count) { size_ += count; }

private:
    const std::shared_ptr<ChunkPool> pool_;
    std::unique_ptr<std::byte[]> buffer_;
    const std::size_t capacity_;
    std::size_t size_ = 0;
};

/// Lends buffers to received chunks while they are in flight.
///
/// A few buffers of each size are kept for the next chunk, so that a fast transfer does not make
/// the system map and clear a fresh one each time. The more is out, the smaller are chunks: many
/// transfers do not drive each other out of the processor's cache, and thousands of stalled
/// connections do not hold a big one each. Thread-safe.
class ChunkPool final : public std::enable_shared_from_this<ChunkPool> {
public:
    /// The size that every connection can count on.
    static constexpr std::size_t kSmallSize = 16UL * 1024;

    /// What may be out in chunks of any size. A few transfers carry 1.5 times as much in whole
    /// megabytes as in chunks of the middle size; thirty carry 1.4 times as much in those.
    static constexpr std::size_t kCached = 4UL * 1024 * 1024;
    static constexpr std::size_t kMiddleSize = 64UL * 1024;

    /// What may be out before chunks get small.
    static constexpr std::size_t kBudget = 64UL * 1024 * 1024;

    /// A buffer for `wanted` bytes, or for fewer when much is out or memory is short, but
    /// always for `minimum`. Throws where there is not even memory for a small one. Neither is more
    /// than `kMaximumContentSize`. It may be larger than asked for.
    std::unique_ptr<Chunk> borrow(std::size_t minimum, std::size_t wanted);

    /// The size of all buffers that are out.
    std::size_t lent() const;

    /// The size of all buffers that are kept for later.
    std::size_t kept() const;

private:
    friend class Chunk;

    struct Shelf {
        std::size_t size;
        std::size_t limit; ///< how many are kept
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
