#include "bench/round_trips.h"

#include "bench/client_stream.h"
#include "bench/order.h"
#include "bench/report.h"

#include <iostream>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include <sys/epoll.h>

namespace quillbox::bench {

namespace {

/// The first round trips of a stream, with cold caches and small TCP windows, are not counted.
constexpr std::size_t kWarmUp = 50;

struct RoundTripContext {
    Poller poller;
    std::vector<std::byte> buffer;
    Histogram times;
};

class Asker final : public Poller::Watcher {
public:
    Asker(RoundTripContext& shared, Descriptor socket) : shared_(shared), socket_(std::move(socket))
    {
        const auto size = static_cast<std::uint32_t>(shared_.buffer.size());
        sendOrder(socket_.get(), {.role = Role::Answer, .size = size});
        for (std::size_t count = 0; count < kWarmUp; ++count)
            exchange(socket_.get(), shared_.buffer);
        shared_.poller.add(socket_.get(), EPOLLIN, *this);
    }

    void ask()
    {
        askedAt_ = Clock::now();
        writeWhole(socket_.get(), shared_.buffer);
    }

    void ready(std::uint32_t /*events*/) override
    {
        const auto room = std::span(shared_.buffer).subspan(received_);
        const auto [count, isOver] = readSome(socket_.get(), room);
        if (isOver)
            endedEarly();
        received_ += count;
        if (received_ < shared_.buffer.size())
            return;
        received_ = 0;
        shared_.times.add(Clock::now() - askedAt_);
        ask();
    }

private:
    RoundTripContext& shared_;
    Descriptor socket_;
    Clock::time_point askedAt_;
    std::size_t received_ = 0;
};

} // namespace

void measureRoundTrips(const RoundTrips& order)
{
    RoundTripContext shared;
    shared.buffer.resize(order.size);
    const auto address = addressOf(order.target);
    std::vector<std::unique_ptr<Asker>> askers;
    for (std::size_t count = 0; count < order.streams; ++count)
        askers.push_back(std::make_unique<Asker>(shared, connectTo(address)));
    const auto begin = Clock::now();
    for (const auto& asker : askers)
        asker->ask();
    const auto end = begin + order.time;
    while (Clock::now() < end)
        shared.poller.poll(end);
    std::cout << "{" << told(shared.times) << "}" << std::endl;
}

} // namespace quillbox::bench
