#include "platform/tcp/pipe_pool.h"

#include <utility>

namespace quillbox {

namespace {

/// The time between a refused pipe and the next attempt, which costs up to four system calls.
constexpr std::chrono::seconds kPauseAfterRefusal{10};

} // namespace

PipedChunk::PipedChunk(std::shared_ptr<PipePool> pool, Pipe pipe)
    : pool_(std::move(pool)), pipe_(std::move(pipe))
{
}

PipedChunk::~PipedChunk()
{
    pool_->giveBack(std::move(pipe_), left_ == 0);
}

Transfer PipedChunk::fill(int socket, std::size_t limit)
{
    const auto moved = pipe_.fillFrom(socket, limit);
    size_ += moved.count;
    left_ += moved.count;
    return moved;
}

Transfer PipedChunk::drain(int socket)
{
    const auto moved = pipe_.drainTo(socket, left_);
    left_ -= moved.count;
    return moved;
}

std::unique_ptr<Chunk> PipedChunk::takeRest(ChunkPool& chunks)
{
    auto chunk = chunks.borrow(left_, left_);
    while (left_ > 0) {
        const auto moved = pipe_.read(chunk->room());
        if (moved.count == 0)
            break;
        chunk->grow(moved.count);
        left_ -= moved.count;
    }
    return chunk;
}

std::unique_ptr<PipedChunk> PipePool::borrow()
{
    std::optional<Pipe> pipe;
    {
        const std::lock_guard lock(mutex_);
        if (hasGivenUp_ || lent_ == limit_)
            return nullptr;
        if (free_.empty() && Clock::now() < refusedUntil_)
            return nullptr;
        ++lent_;
        if (!free_.empty()) {
            pipe = std::move(free_.back());
            free_.pop_back();
        }
    }
    if (!pipe)
        pipe = Pipe::open();
    if (pipe)
        return std::make_unique<PipedChunk>(shared_from_this(), std::move(*pipe));
    const std::lock_guard lock(mutex_);
    --lent_;
    refusedUntil_ = Clock::now() + kPauseAfterRefusal;
    return nullptr;
}

void PipePool::giveUp()
{
    std::vector<Pipe> closed;
    const std::lock_guard lock(mutex_);
    hasGivenUp_ = true;
    closed.swap(free_);
}

std::size_t PipePool::lent() const
{
    const std::lock_guard lock(mutex_);
    return lent_;
}

std::size_t PipePool::kept() const
{
    const std::lock_guard lock(mutex_);
    return free_.size();
}

void PipePool::giveBack(Pipe pipe, bool isEmpty)
{
    const std::lock_guard lock(mutex_);
    --lent_;
    if (isEmpty && !hasGivenUp_)
        free_.push_back(std::move(pipe));
}

bool isSpliceRefused(const Transfer& transfer)
{
    return transfer.error == std::errc::invalid_argument
           || transfer.error == std::errc::function_not_supported
           || transfer.error == std::errc::bad_file_descriptor
           || transfer.error == std::errc::operation_not_permitted
           || transfer.error == std::errc::operation_not_supported;
}

} // namespace quillbox
