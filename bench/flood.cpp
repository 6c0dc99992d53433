#include "bench/flood.h"

#include "bench/blocks.h"
#include "bench/client_stream.h"
#include "bench/order.h"
#include "bench/report.h"

#include <iostream>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <sys/epoll.h>

namespace quillbox::bench {

namespace {

/// Shared by the streams of a transfer.
struct Transfer {
    Poller poller;
    Histogram latencies;
    std::vector<std::byte> buffer = std::vector<std::byte>(kBlockSize); ///< of a download
    Clock::time_point end;
    std::size_t bytes = 0;
    std::size_t running = 0; ///< streams
};

class UploadStream final : public Poller::Watcher {
public:
    UploadStream(Transfer& transfer, Descriptor socket, const Pace& pace)
        : transfer_(transfer), socket_(std::move(socket)), pace_(pace)
    {
        placeOrder(socket_.get(), {.role = Role::Sink});
    }

    void start(Clock::time_point begin)
    {
        transfer_.poller.add(socket_.get(), EPOLLIN, *this);
        sender_.emplace(transfer_.poller, *this, socket_.get(), pace_, begin);
        ++transfer_.running;
    }

    void ready(std::uint32_t events) override
    {
        if ((events & EPOLLIN) != 0)
            takeReceipt();
        else
            sendOnce();
    }

private:
    void sendOnce()
    {
        if (sender_->isBetweenBlocks() && Clock::now() >= transfer_.end)
            sender_->finishNext();
        if (!sender_->send())
            endedEarly();
    }

    void takeReceipt()
    {
        const auto room = std::as_writable_bytes(std::span(&receipt_, 1)).subspan(received_);
        const auto [count, isOver] = readSome(socket_.get(), room);
        if (isOver)
            endedEarly();
        received_ += count;
        if (received_ < sizeof receipt_)
            return;
        transfer_.latencies.add(receipt_);
        transfer_.bytes += sender_->bytes();
        transfer_.poller.remove(socket_.get());
        --transfer_.running;
    }

    Transfer& transfer_;
    Descriptor socket_;
    Pace pace_;
    std::optional<BlockSender> sender_;
    Histogram receipt_; ///< the latencies that the server has measured
    std::size_t received_ = 0;
};

class DownloadStream final : public Poller::Watcher {
public:
    DownloadStream(Transfer& transfer, Descriptor socket, const Pace& pace)
        : transfer_(transfer), socket_(std::move(socket))
    {
        placeOrder(socket_.get(), {.role = Role::Source, .pace = pace});
    }

    void start(Clock::time_point begin)
    {
        transfer_.poller.add(socket_.get(), EPOLLIN, *this);
        const auto time = begin.time_since_epoch().count();
        writeWhole(socket_.get(), std::as_bytes(std::span(&time, 1)));
    }

    void ready(std::uint32_t /*events*/) override
    {
        const auto [count, isOver] = readSome(socket_.get(), transfer_.buffer);
        if (isOver)
            endedEarly();
        transfer_.bytes += count;
        reader_.take(std::span(transfer_.buffer).first(count), transfer_.latencies);
    }

private:
    Transfer& transfer_;
    Descriptor socket_;
    BlockReader reader_;
};

bool readLine()
{
    std::string line;
    return static_cast<bool>(std::getline(std::cin, line));
}

template <class Stream> void perform(const Flood& flood)
{
    Transfer transfer;
    std::vector<std::unique_ptr<Stream>> streams;
    for (std::size_t index = 0; index < flood.streams; ++index) {
        const auto address = addressOf(flood.targets.at(index % flood.targets.size()));
        const Pace pace{.bytesPerSecond = flood.bytesPerSecond,
                        .stream = static_cast<std::uint32_t>(index),
                        .streams = static_cast<std::uint32_t>(flood.streams)};
        streams.push_back(std::make_unique<Stream>(transfer, connectTo(address), pace));
    }
    std::cout << "{\"connected\": " << streams.size() << "}" << std::endl;
    if (!readLine())
        return;
    const auto begin = Clock::now();
    transfer.end = begin + flood.time;
    for (const auto& stream : streams)
        stream->start(begin);
    // An upload goes on until the server has received all.
    while (transfer.running > 0 || Clock::now() < transfer.end) {
        transfer.poller.poll(transfer.running > 0 ? transfer.end + kPatience : transfer.end);
        checkPatience(transfer.end);
    }
    const std::chrono::duration<double> seconds = Clock::now() - begin;
    std::cout << "{\"bytes\": " << transfer.bytes << ", \"seconds\": " << seconds.count() << ", "
              << told(transfer.latencies) << "}" << std::endl;
    while (readLine()) {
    }
}

} // namespace

void upload(const Flood& flood)
{
    perform<UploadStream>(flood);
}

void download(const Flood& flood)
{
    perform<DownloadStream>(flood);
}

} // namespace quillbox::bench
