#include "bench/blocks.h"

#include "bench/air.h"
#include "bench/tcp.h"

#include <algorithm>
#include <bit>
#include <stdexcept>
#include <utility>

#include <sys/epoll.h>

namespace quillbox::bench {

namespace {

/// A sender that is later than this loses its air time: it does not catch up in one burst.
constexpr std::chrono::milliseconds kLatest{20};

constexpr std::array<std::byte, kBlockSize> kBody{};

} // namespace

BlockSender::BlockSender(Poller& poller, Poller::Watcher& watcher, int socket, const Pace& pace,
                         Clock::time_point begin)
    : poller_(poller),
      watcher_(watcher),
      socket_(socket),
      pace_(pace),
      begin_(begin),
      due_(begin),
      number_(pace.stream)
{
    schedule();
    arrange();
}

bool BlockSender::send()
{
    if (isBetweenBlocks())
        begin();
    const auto head = std::as_bytes(std::span(&head_, 1)).subspan(std::min(sent_, sizeof head_));
    const auto body = std::span(kBody).first(head_.size - sent_ - head.size());
    const auto sent = writeSome(socket_, head, body);
    if (sent.isOver)
        return false;
    sent_ += sent.count;
    bytes_ += sent.count;
    if (isBetweenBlocks())
        schedule();
    arrange();
    return true;
}

void BlockSender::begin()
{
    head_ = {.size = static_cast<std::uint32_t>(nextSize_),
             .isLast = finishes_ ? 1U : 0U,
             .sentAt = Clock::now()};
    sent_ = 0;
}

/// Determines the next block.
void BlockSender::schedule()
{
    if (pace_.bytesPerSecond == 0)
        return;
    const auto now = Clock::now();
    do {
        const auto next = aggregate(pace_.bytesPerSecond, number_);
        number_ += pace_.streams;
        nextSize_ = next.size;
        due_ = begin_ + next.due;
    } while (due_ + kLatest < now);
}

/// Waits for room in the socket, or for the time of the next block.
void BlockSender::arrange()
{
    const bool isOver = isBetweenBlocks() && head_.isLast != 0;
    const bool isEarly = isBetweenBlocks() && Clock::now() < due_;
    const bool wantsRoom = !isOver && !isEarly;
    if (std::exchange(wantsRoom_, wantsRoom) != wantsRoom)
        poller_.change(socket_, wantsRoom ? EPOLLIN | EPOLLOUT : EPOLLIN, watcher_);
    if (isEarly && !isOver)
        poller_.callAt(due_, watcher_);
}

bool BlockReader::take(std::span<const std::byte> bytes, Histogram& latencies)
{
    while (!bytes.empty()) {
        if (received_ < headBytes_.size()) {
            const auto part = std::min(headBytes_.size() - received_, bytes.size());
            std::copy_n(bytes.begin(), part, headBytes_.begin() + static_cast<long>(received_));
            received_ += part;
            bytes = bytes.subspan(part);
            if (received_ < headBytes_.size())
                return false;
            head_ = std::bit_cast<BlockHead>(headBytes_);
            if (head_.size <= sizeof head_ || head_.size > kBlockSize)
                throw std::runtime_error("bytes were lost or changed: a block has no head");
            continue;
        }
        const auto part = std::min(head_.size - received_, bytes.size());
        received_ += part;
        bytes = bytes.subspan(part);
        if (received_ < head_.size)
            return false;
        received_ = 0;
        latencies.add(Clock::now() - head_.sentAt);
        if (head_.isLast != 0)
            return true;
    }
    return false;
}

} // namespace quillbox::bench
