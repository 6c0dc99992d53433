#include "platform/tcp/pipe_pool.h"

#include "platform/connection.h"

#include <array>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace quillbox {

namespace {

/// The time between a refused pipe and the next attempt, which costs up to four system calls.
constexpr std::chrono::seconds kPauseAfterRefusal{10};

/// Equals the default pipe-max-size (pipe(7)), the largest size allowed without privileges.
constexpr int kPipeSize = static_cast<int>(kMaximumContentSize);

/// Never SPLICE_F_MORE: it would delay the end of a small message by 200 ms.
Transfer splice(int from, int to, std::size_t limit)
{
    return uninterrupted([&] {
        return ::splice(from, nullptr, to, nullptr, limit, SPLICE_F_MOVE | SPLICE_F_NONBLOCK);
    });
}

} // namespace

std::optional<Pipe> Pipe::open()
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        return std::nullopt;
    Pipe pipe{.readEnd = FileDescriptor(ends[0]), .writeEnd = FileDescriptor(ends[1])};
    if (::fcntl(ends[1], F_SETPIPE_SZ, kPipeSize) < 0)
        return std::nullopt;
    return pipe;
}

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
    const auto moved = splice(socket, pipe_.writeEnd.get(), limit);
    size_ += moved.count;
    left_ += moved.count;
    return moved;
}

Transfer PipedChunk::drain(int socket)
{
    const auto moved = splice(pipe_.readEnd.get(), socket, left_);
    left_ -= moved.count;
    return moved;
}

std::unique_ptr<Chunk> PipedChunk::takeRest(ChunkPool& chunks)
{
    auto chunk = chunks.borrow(left_, left_);
    while (left_ > 0) {
        const auto room = chunk->room();
        const auto moved =
            uninterrupted([&] { return ::read(pipe_.readEnd.get(), room.data(), room.size()); });
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

PendingSend::PendingSend(Content content)
    : content_(std::move(content)), piped_(dynamic_cast<PipedChunk*>(content_.storage()))
{
}

Transfer PendingSend::sendSome(int socket, ChunkPool& chunks)
{
    if (piped_) {
        const auto moved = piped_->drain(socket);
        if (!isSpliceRefused(moved))
            return moved;
        const auto left = piped_->left();
        auto rest = piped_->takeRest(chunks);
        if (rest->size() != left)
            return {.count = 0, .error = std::make_error_code(std::errc::io_error)};
        piped_ = nullptr;
        content_ = Content(std::move(rest));
    }
    const auto moved = quillbox::sendSome(socket, content_.bytes().subspan(sent_));
    sent_ += moved.count;
    return moved;
}

} // namespace quillbox
