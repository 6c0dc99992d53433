#include "bench/flood.h"

#include "bench/client_stream.h"
#include "bench/order.h"

#include <iostream>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include <sys/epoll.h>

namespace quillbox::bench {

namespace {

void print(std::size_t bytes, Clock::duration elapsed)
{
    const std::chrono::duration<double> seconds = elapsed;
    std::cout << "{\"bytes\": " << bytes << ", \"seconds\": " << seconds.count() << "}"
              << std::endl;
}

std::vector<Descriptor> connectAll(const Flood& flood)
{
    std::vector<Descriptor> sockets;
    for (std::size_t count = 0; count < flood.streams; ++count)
        sockets.push_back(connectTo(addressOf(flood.targets.at(count % flood.targets.size()))));
    return sockets;
}

struct Upload {
    Poller poller;
    const std::vector<std::byte> block = std::vector<std::byte>(kBlockSize);
    const std::vector<std::byte> lastBlock = std::vector<std::byte>(kBlockSize, kLastBlock);
    Clock::time_point end;
    std::size_t bytes = 0;
    std::size_t running = 0;
};

class UploadStream final : public Poller::Watcher {
public:
    UploadStream(Upload& upload, Descriptor socket) : upload_(upload), socket_(std::move(socket))
    {
        sendOrder(socket_.get(), {.role = Role::Sink});
    }

    void start() { upload_.poller.add(socket_.get(), EPOLLOUT, *this); }

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
        if (offset_ == 0)
            isLast_ = Clock::now() >= upload_.end;
        const auto& block = isLast_ ? upload_.lastBlock : upload_.block;
        const auto sent = writeSome(socket_.get(), std::span(block).subspan(offset_));
        if (sent.isOver)
            endedEarly();
        offset_ = (offset_ + sent.count) % kBlockSize;
        upload_.bytes += sent.count;
        if (isLast_ && offset_ == 0)
            upload_.poller.change(socket_.get(), EPOLLIN, *this);
    }

    void takeReceipt()
    {
        std::byte receipt{};
        if (readSome(socket_.get(), std::span(&receipt, 1)).count != 1)
            endedEarly();
        --upload_.running;
        socket_.reset();
    }

    Upload& upload_;
    Descriptor socket_;
    std::size_t offset_ = 0;
    bool isLast_ = false;
};

struct Download {
    Poller poller;
    std::vector<std::byte> buffer = std::vector<std::byte>(kBlockSize);
    std::size_t bytes = 0;
};

class DownloadStream final : public Poller::Watcher {
public:
    DownloadStream(Download& download, Descriptor socket)
        : download_(download), socket_(std::move(socket))
    {
        download_.poller.add(socket_.get(), EPOLLIN, *this);
    }

    void start() { sendOrder(socket_.get(), {.role = Role::Source}); }

    void ready(std::uint32_t /*events*/) override
    {
        const auto [count, isOver] = readSome(socket_.get(), download_.buffer);
        if (isOver)
            endedEarly();
        download_.bytes += count;
    }

private:
    Download& download_;
    Descriptor socket_;
};

} // namespace

void upload(const Flood& flood)
{
    Upload all;
    std::vector<std::unique_ptr<UploadStream>> streams;
    for (auto& socket : connectAll(flood))
        streams.push_back(std::make_unique<UploadStream>(all, std::move(socket)));
    const auto begin = Clock::now();
    all.end = begin + flood.time;
    all.running = streams.size();
    for (const auto& stream : streams)
        stream->start();
    while (all.running > 0) {
        all.poller.poll(all.end + kPatience);
        checkPatience(all.end);
    }
    print(all.bytes, Clock::now() - begin);
}

void download(const Flood& flood)
{
    Download all;
    std::vector<std::unique_ptr<DownloadStream>> streams;
    for (auto& socket : connectAll(flood))
        streams.push_back(std::make_unique<DownloadStream>(all, std::move(socket)));
    const auto begin = Clock::now();
    const auto end = begin + flood.time;
    for (const auto& stream : streams)
        stream->start();
    while (Clock::now() < end)
        all.poller.poll(end);
    print(all.bytes, Clock::now() - begin);
}

} // namespace quillbox::bench
