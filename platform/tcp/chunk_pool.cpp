#include "platform/tcp/chunk_pool.h"

#include <algorithm>
#include <new>
#include <utility>

namespace quillbox {

namespace {

/// What stays free for the rest of the program, whose small allocations have nothing to fall back
/// on.
constexpr std::size_t kSpare = 1024UL * 1024;

/// Calls the functions themselves: a compiler may leave out a pair of `new` and `delete`.
bool isMemorySpare()
{
    void* const spare = ::operator new[](kSpare, std::nothrow);
    ::operator delete[](spare, std::nothrow);
    return spare != nullptr;
}

} // namespace

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
    const auto modest = std::max(minimum, std::min(wanted, kSmallSize));
    auto size = std::max(minimum, std::min(wanted, most(wanted)));
    auto buffer = take(size);
    if (!buffer) {
        // There may still be enough memory for a small buffer.
        dropKept();
        size = modest;
        buffer = take(size);
    }
    if (!buffer)
        throw std::bad_alloc();
    return std::make_unique<Chunk>(shared_from_this(), std::move(buffer), size);
}

/// The largest chunk size allowed at present.
std::size_t ChunkPool::most(std::size_t wanted) const
{
    const auto out = lent();
    if (out + wanted <= kLargeBudget)
        return wanted;
    return out + std::min(wanted, kMiddleSize) <= kBudget ? kMiddleSize : kSmallSize;
}

/// Returns a buffer of at least `size` bytes and sets `size` to its actual size; null if out of
/// memory, or nearly so and the buffer would not be a small one.
std::unique_ptr<std::byte[]> ChunkPool::take(std::size_t& size)
{
    {
        const std::lock_guard lock(mutex_);
        auto& shelf = shelfFor(size);
        size = shelf.size;
        lent_ += size;
        if (!shelf.free.empty()) {
            auto buffer = std::move(shelf.free.back());
            shelf.free.pop_back();
            return buffer;
        }
    }
    std::unique_ptr<std::byte[]> buffer(new (std::nothrow) std::byte[size]);
    if (size > kSmallSize && !isMemorySpare())
        buffer.reset();
    if (!buffer) {
        const std::lock_guard lock(mutex_);
        lent_ -= size;
    }
    return buffer;
}

void ChunkPool::dropKept()
{
    const std::lock_guard lock(mutex_);
    for (auto& shelf : shelves_)
        shelf.free.clear();
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
