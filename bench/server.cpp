#include "bench/server.h"

#include "bench/blocks.h"
#include "bench/histogram.h"
#include "bench/order.h"
#include "bench/poller.h"
#include "bench/tcp.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <span>
#include <thread>
#include <utility>
#include <vector>

#include <sys/epoll.h>

namespace quillbox::bench {

namespace {

/// Shared by the connections of one thread.
struct ServerContext {
    ServerContext* floods = nullptr; ///< where sinks and sources are moved to; null: they stay here
    Poller poller;
    std::vector<std::byte> incoming = std::vector<std::byte>(kBlockSize);
    const std::vector<std::byte> outgoing = std::vector<std::byte>(kBlockSize);
};

/// One connection; it destroys itself when it ends.
class Peer final : public Poller::Watcher {
public:
    static void begin(ServerContext& shared, Descriptor socket)
    {
        auto* peer = new Peer(shared, std::move(socket));
        shared.poller.add(peer->socket_.get(), EPOLLIN, *peer);
    }

    void ready(std::uint32_t events) override
    {
        const bool mayWrite = (events & EPOLLOUT) != 0 || events == 0;
        const bool goesOn = ((events & EPOLLIN) == 0 || readOnce()) && (!mayWrite || writeOnce())
                            && (events & (EPOLLERR | EPOLLHUP)) == 0;
        if (!goesOn)
            delete this;
        else if (shared_->floods != nullptr && headSize_ == head_.size()
                 && order_.role != Role::Answer)
            moveTo(*shared_->floods);
    }

private:
    Peer(ServerContext& shared, Descriptor socket) : shared_(&shared), socket_(std::move(socket)) {}
    ~Peer() override { shared_->poller.dropCalls(*this); }

    /// After this call the connection belongs to the thread of `other`.
    void moveTo(ServerContext& other)
    {
        shared_->poller.remove(socket_.get());
        shared_ = &other;
        shared_->poller.add(socket_.get(), wanted(), *this);
    }

    std::uint32_t wanted() const { return wantsRoom_ ? EPOLLIN | EPOLLOUT : EPOLLIN; }

    /// Returns whether the connection stays open, as do take, takeBody and writeOnce.
    bool readOnce()
    {
        const auto [count, isOver] = readSome(socket_.get(), shared_->incoming);
        return !isOver && take(std::span(shared_->incoming).first(count));
    }

    bool take(std::span<const std::byte> bytes)
    {
        if (headSize_ < head_.size()) {
            const auto missing = std::min(head_.size() - headSize_, bytes.size());
            std::copy_n(bytes.begin(), missing, head_.begin() + static_cast<long>(headSize_));
            headSize_ += missing;
            bytes = bytes.subspan(missing);
            if (headSize_ < head_.size())
                return true;
            std::memcpy(&order_, head_.data(), sizeof order_);
            if (order_.role != Role::Answer)
                owed_ = 1;
            if (order_.role == Role::Sink)
                latencies_ = std::make_unique<Histogram>();
        }
        return (bytes.empty() || takeBody(bytes)) && (owed_ == 0 || writeOnce());
    }

    bool takeBody(std::span<const std::byte> bytes)
    {
        switch (order_.role) {
        case Role::Sink:
            if (reader_.take(bytes, *latencies_))
                owed_ = sizeof(Histogram);
            return true;
        case Role::Answer:
            received_ += bytes.size();
            for (; order_.size > 0 && received_ >= order_.size; received_ -= order_.size)
                owed_ += order_.size;
            return order_.size > 0;
        case Role::Source:
            break;
        }
        return takeBegin(bytes);
    }

    /// Starts the source once its begin has been received.
    bool takeBegin(std::span<const std::byte> bytes)
    {
        if (bytes.size() > begin_.size() - received_)
            return false;
        std::ranges::copy(bytes, begin_.begin() + static_cast<long>(received_));
        received_ += bytes.size();
        if (received_ < begin_.size())
            return true;
        const Clock::time_point begin{Clock::duration(std::bit_cast<Clock::rep>(begin_))};
        sender_.emplace(shared_->poller, *this, socket_.get(), order_.pace, begin);
        return true;
    }

    std::span<const std::byte> outgoing() const
    {
        if (order_.role == Role::Sink && owed_ > 1)
            return std::as_bytes(std::span(latencies_.get(), 1)).last(owed_);
        return std::span(shared_->outgoing).first(std::min(owed_, shared_->outgoing.size()));
    }

    bool writeOnce()
    {
        if (sender_)
            return sender_->send();
        const auto sent = writeSome(socket_.get(), outgoing());
        if (sent.isOver)
            return false;
        owed_ -= sent.count;
        // Answers are usually sent completely at once and then need no epoll_ctl call.
        const bool wantsRoom = owed_ > 0;
        if (std::exchange(wantsRoom_, wantsRoom) != wantsRoom)
            shared_->poller.change(socket_.get(), wanted(), *this);
        return true;
    }

    ServerContext* shared_;
    Descriptor socket_;
    std::array<std::byte, sizeof(Order)> head_{};
    std::size_t headSize_ = 0;
    Order order_;
    std::size_t received_ = 0; ///< bytes of the current request, or of the begin
    std::size_t owed_ = 0;     ///< bytes still to be sent
    bool wantsRoom_ = false;
    BlockReader reader_;
    std::unique_ptr<Histogram> latencies_; ///< of a sink
    std::array<std::byte, sizeof(Clock::rep)> begin_{};
    std::optional<BlockSender> sender_; ///< of a source
};

class Door final : public Poller::Watcher {
public:
    Door(ServerContext& shared, std::uint16_t port) : shared_(shared), socket_(listenOn(port))
    {
        shared_.poller.add(socket_.get(), EPOLLIN, *this);
    }

    void ready(std::uint32_t /*events*/) override
    {
        while (true) {
            Descriptor accepted = acceptFrom(socket_.get());
            if (accepted.get() < 0)
                return;
            Peer::begin(shared_, std::move(accepted));
        }
    }

private:
    ServerContext& shared_;
    Descriptor socket_;
};

[[noreturn]] void run(ServerContext& shared)
{
    while (true)
        shared.poller.poll(Clock::now() + std::chrono::seconds(1));
}

} // namespace

void serve(std::uint16_t port)
{
    // Both contexts live as long as the process. Small requests have their own thread, so that they
    // do not wait for a transfer; a real phone's file server does not let them wait either.
    ServerContext floods;
    ServerContext others;
    others.floods = &floods;
    const Door door(others, port);
    const std::thread thread([&floods] { run(floods); });
    std::cout << "{\"listening\": " << port << "}" << std::endl;
    run(others);
}

} // namespace quillbox::bench
