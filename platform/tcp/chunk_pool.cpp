#include "platform/tcp/chunk_pool.h"

#include <algorithm>
#include <utility>

namespace quillbox {

Chunk::Chunk(std::shared_ptr<ChunkPool> pool, std::unique_ptr<std::byte[]> buffer,
             std::size_t capacity)
    : pool_(std::move(pool)), buffer_(std::move(buffer)), capacity_(capacity)
{
}

Chunk::~Chunk()
{
    pool_->giveBack(std::move(buffer_), capacity_);
}

std::unique_ptr<Chunk> ChunkPool::borrow(std::size_t minimum, std::size_t wanted)
{
    std::unique_ptr<std::byte[]> buffer;
    std::size_t size = 0;
    {
        const std::lock_guard lock(mutex_);
        const bool isSpent = lent_ + wanted > kBudget;
        auto& shelf = shelfFor(std::max(minimum, isSpent ? std::min(wanted, kSmallSize) : wanted));
        size = shelf.size;
        lent_ += size;
        if (!shelf.free.empty()) {
            buffer = std::move(shelf.free.back());
            shelf.free.pop_back();
        }
    }
    if (!buffer)
        buffer = std::make_unique_for_overwrite<std::byte[]>(size);
    return std::make_unique<Chunk>(shared_from_this(), std::move(buffer), size);
}

std::size_t ChunkPool::lent() const
{
    const std::lock_guard lock(mutex_);
    return lent_;
}

std::size_t ChunkPool::kept() const
{
    const std::lock_guard lock(mutex_);
    std::size_t sum = 0;
    for (const auto& shelf : shelves_)
        sum += shelf.size * shelf.free.size();
    return sum;
}

ChunkPool::Shelf& ChunkPool::shelfFor(std::size_t size)
{
    auto* const shelf = std::find_if(shelves_.begin(), shelves_.end(),
                                     [size](const Shelf& each) { return each.size >= size; });
    return shelf == shelves_.end() ? shelves_.back() : *shelf;
}

void ChunkPool::giveBack(std::unique_ptr<std::byte[]> buffer, std::size_t size)
{
    const std::lock_guard lock(mutex_);
    lent_ -= size;
    auto& shelf = shelfFor(size);
    if (shelf.free.size() < shelf.limit)
        shelf.free.push_back(std::move(buffer));
}

} // namespace quillbox
