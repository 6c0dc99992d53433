#pragma once

#include "platform/content.h"
#include "platform/tcp/chunk_pool.h"
#include "platform/tcp/pipe.h"
#include "platform/tcp/transfer.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace quillbox {

class PipePool;

/// A borrowed pipe that takes one chunk from a socket and hands it to another, without a copy in
/// this process. It goes back to its pool, which it keeps alive, when it is destroyed; on any
/// thread. One that still holds bytes then is closed: they must not end up in another stream.
class PipedChunk final : public ContentStorage {
public:
    PipedChunk(std::shared_ptr<PipePool> pool, Pipe pipe);
    ~PipedChunk() override;

    PipedChunk(const PipedChunk&) = delete;
    PipedChunk& operator=(const PipedChunk&) = delete;

    /// What was taken from the socket, handed on or not.
    std::size_t size() const override { return size_; }

    /// None: they never come into this process's memory.
    std::span<const std::byte> bytes() const override { return {}; }

    /// Takes what the socket holds, `limit` bytes at the most; nothing where urgent data begins. To
    /// be called until it has taken something: how much room a pipe has left, nobody can tell.
    Transfer fill(int socket, std::size_t limit);

    /// Hands on what the socket takes.
    Transfer drain(int socket);

    /// What is left, in memory.
    std::unique_ptr<Chunk> takeRest(ChunkPool& chunks);

private:
    const std::shared_ptr<PipePool> pool_;
    Pipe pipe_;
    std::size_t size_ = 0;
    std::size_t left_ = 0;
};

/// Lends pipes to chunks in flight, a few at a time.
///
/// The kernel lets a user without privileges have so many pages in pipes (pipe(7),
/// pipe-user-pages-soft): 64 pipes of this size, and every further pipe of any of that user's
/// programs is a tiny one. So the pool stays far below, and everybody has to manage without it.
/// Thread-safe.
class PipePool final : public std::enable_shared_from_this<PipePool> {
public:
    using Clock = std::chrono::steady_clock;

    /// A quarter of what a user may have.
    static constexpr std::size_t kLimit = 16;

    explicit PipePool(std::size_t limit = kLimit) : limit_(limit) {}

    PipePool(const PipePool&) = delete;
    PipePool& operator=(const PipePool&) = delete;

    /// None when all are out, when the system gave none a short while ago, and after `giveUp`.
    std::unique_ptr<PipedChunk> borrow();

    /// Lends no more: this system cannot move bytes through a pipe.
    void giveUp();

    /// How many are out, and how many are kept for later.
    std::size_t lent() const;
    std::size_t kept() const;

private:
    friend class PipedChunk;

    void giveBack(Pipe pipe, bool isEmpty);

    const std::size_t limit_;
    mutable std::mutex mutex_;
    std::vector<Pipe> free_;
    std::size_t lent_ = 0;
    bool hasGivenUp_ = false;
    Clock::time_point refusedUntil_;
};

/// Whether a transfer failed because these two descriptors cannot be spliced, rather than because
/// the connection has ended.
bool isSpliceRefused(const Transfer& transfer);

} // namespace quillbox
