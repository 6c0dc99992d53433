#pragma once

#include "bench/histogram.h"
#include "bench/order.h"
#include "bench/poller.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace quillbox::bench {

/// The size of the blocks of a stream without a pace. With a pace, an aggregate is one block.
constexpr std::size_t kBlockSize = 256UL << 10;

/// The first bytes of each block. The end of the stream cannot mark the last block: relays close
/// both directions when one ends, so that the receipt would be lost.
struct BlockHead {
    std::uint32_t size = 0; ///< including the head
    std::uint32_t isLast = 0;
    Clock::time_point sentAt;
};

/// Sends blocks on a socket. `poller` watches the socket for `watcher`, for EPOLLIN too; whenever
/// it calls the watcher, the watcher calls `send`.
class BlockSender final {
public:
    /// `begin` is when the first aggregate could be due.
    BlockSender(Poller& poller, Poller::Watcher& watcher, int socket, const Pace& pace,
                Clock::time_point begin);

    /// Sends what is due and fits. Returns whether the connection is still open.
    bool send();

    /// Makes the next block the last one.
    void finishNext() { finishes_ = true; }

    bool isBetweenBlocks() const { return sent_ == head_.size; }
    std::size_t bytes() const { return bytes_; }

private:
    void schedule();
    void begin();
    void arrange();

    Poller& poller_;
    Poller::Watcher& watcher_;
    int socket_;
    Pace pace_;
    Clock::time_point begin_;
    Clock::time_point due_;
    std::uint64_t number_; ///< of the aggregate
    std::size_t nextSize_ = kBlockSize;
    BlockHead head_;
    std::size_t sent_ = 0; ///< bytes of the current block
    std::size_t bytes_ = 0;
    bool finishes_ = false;
    bool wantsRoom_ = false;
};

/// Takes the bytes of a stream of blocks apart.
class BlockReader final {
public:
    /// Adds the latency of each block that is now complete: the time from the first attempt to send
    /// it. Returns whether the last block is complete. Throws std::runtime_error if a head is
    /// wrong.
    bool take(std::span<const std::byte> bytes, Histogram& latencies);

private:
    std::array<std::byte, sizeof(BlockHead)> headBytes_{};
    BlockHead head_;
    std::size_t received_ = 0; ///< bytes of the current block
};

} // namespace quillbox::bench
