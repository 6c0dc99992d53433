#pragma once

#include "platform/posix/file_descriptor.h"
#include "platform/tcp/chunk_pool.h"
#include "platform/tcp/socket_calls.h"
#include "platform/values/content.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace quillbox {

class PipePool;

/// A non-blocking pipe with room for a content of maximum size.
struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;

    /// None if no pipe of this size is available.
    static std::optional<Pipe> open();
};

/// A borrowed pipe that moves one chunk from a socket to another without a copy in user space. Its
/// destructor, which may run on any thread, returns the pipe to the pool, or closes it if it still
/// contains bytes, which must not end up in another stream. Keeps the pool alive.
class PipedChunk final : public ContentStorage {
public:
    PipedChunk(std::shared_ptr<PipePool> pool, Pipe pipe);
    ~PipedChunk() override;

    PipedChunk(const PipedChunk&) = delete;
    PipedChunk& operator=(const PipedChunk&) = delete;

    /// The number of bytes received from the socket, whether sent on or not.
    std::size_t size() const override { return size_; }

    /// The number of bytes that are still in the pipe.
    std::size_t left() const { return left_; }

    /// Always empty: the bytes are never in this process's memory.
    std::span<const std::byte> bytes() const override { return {}; }

    /// Moves at most `limit` available bytes from the socket into the pipe; none at urgent data.
    /// Not to be called again after it has moved bytes, because the free capacity of a pipe is not
    /// known then.
    Transfer fill(int socket, std::size_t limit);

    /// Moves as many bytes into the socket as it accepts. After a reset by the peer this raises
    /// SIGPIPE, since splice(2) has no flag against it; the process ignores that signal.
    Transfer drain(int socket);

    /// Reads the remaining bytes into memory; fewer only after an error.
    std::unique_ptr<Chunk> takeRest(ChunkPool& chunks);

private:
    const std::shared_ptr<PipePool> pool_;
    Pipe pipe_;
    std::size_t size_ = 0;
    std::size_t left_ = 0;
};

/// A small pool of pipes for chunks that are being relayed.
///
/// The kernel limits the pages in the pipes of an unprivileged user (pipe(7),
/// pipe-user-pages-soft): by default to 64 pipes of this size, to more where pages are larger than
/// 4 KiB. Beyond that, each further pipe of any program of this user is tiny. So the pool stays far
/// below this limit, and callers must be able to do without a pipe. Thread-safe.
class PipePool final : public std::enable_shared_from_this<PipePool> {
public:
    using Clock = std::chrono::steady_clock;

    /// A quarter of the user's default limit, or less.
    static constexpr std::size_t kLimit = 16;

    explicit PipePool(std::size_t limit = kLimit) : limit_(limit) {}

    PipePool(const PipePool&) = delete;
    PipePool& operator=(const PipePool&) = delete;

    /// Null if all pipes are in use, shortly after the system refused one, and after `giveUp`.
    std::unique_ptr<PipedChunk> borrow();

    /// Stops lending pipes, because this system cannot splice.
    void giveUp();

    /// The number of borrowed pipes, and of free ones kept for reuse.
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

/// Whether a transfer failed because these file descriptors cannot be spliced, not because the
/// connection failed.
bool isSpliceRefused(const Transfer& transfer);

/// A content that is being sent, in memory or in a pipe.
class PendingSend final {
public:
    PendingSend() = default;
    explicit PendingSend(Content content);

    /// Whether the content can be sent: bytes in memory, or a piped chunk of this backend.
    bool isSendable() const
    {
        return piped_ != nullptr || content_.bytes().size() == content_.size();
    }

    /// The number of bytes that were not sent yet.
    std::size_t left() const { return piped_ ? piped_->left() : content_.size() - sent_; }
    bool isNothing() const { return left() == 0; }

    /// Sends as much as the socket accepts without blocking. If the system cannot splice from the
    /// pipe to this socket, the rest is copied to memory, in a buffer from `chunks`.
    Transfer sendSome(int socket, ChunkPool& chunks);

private:
    Content content_;
    PipedChunk* piped_ = nullptr; ///< the storage of the content if it is in a pipe
    std::size_t sent_ = 0;        ///< of a content in memory
};

} // namespace quillbox
