#include "bench/short_sessions.h"

#include "bench/client_stream.h"
#include "bench/order.h"
#include "bench/report.h"

#include <array>
#include <cstring>
#include <iostream>
#include <memory>
#include <span>
#include <stdexcept>
#include <system_error>
#include <vector>

#include <sys/epoll.h>

namespace quillbox::bench {

namespace {

constexpr std::uint32_t kRequestSize = 64;
constexpr std::size_t kMostFailures = 10'000;

struct SessionContext {
    Poller poller;
    sockaddr_in address{};
    Histogram times;
    std::size_t failed = 0;
};

/// Opens one session after the other.
class Visitor final : public Poller::Watcher {
public:
    explicit Visitor(SessionContext& shared) : shared_(shared) {}

    void visit()
    {
        begunAt_ = Clock::now();
        received_ = 0;
        // Closes the old socket first: a visitor has only one session at a time.
        socket_.reset();
        socket_ = beginConnect(shared_.address);
        shared_.poller.add(socket_.get(), EPOLLOUT, *this);
    }

    void ready(std::uint32_t events) override
    {
        try {
            if ((events & EPOLLOUT) != 0)
                ask();
            else
                takeAnswer();
        } catch (const std::exception&) {
            if (++shared_.failed > kMostFailures)
                throw;
            visit();
        }
    }

private:
    void ask()
    {
        std::array<std::byte, sizeof(Order) + kRequestSize> bytes{};
        const Order order{.role = Role::Answer, .size = kRequestSize};
        std::memcpy(bytes.data(), &order, sizeof order);
        writeWhole(socket_.get(), bytes);
        shared_.poller.change(socket_.get(), EPOLLIN, *this);
    }

    void takeAnswer()
    {
        std::array<std::byte, kRequestSize> bytes{};
        const auto [count, isOver] = readSome(socket_.get(), bytes);
        if (isOver)
            endedEarly();
        received_ += count;
        if (received_ < kRequestSize)
            return;
        shared_.times.add(Clock::now() - begunAt_);
        visit();
    }

    SessionContext& shared_;
    Descriptor socket_;
    Clock::time_point begunAt_;
    std::size_t received_ = 0;
};

} // namespace

void measureShortSessions(const ShortSessions& order)
{
    SessionContext shared;
    shared.address = addressOf(order.target);
    std::vector<std::unique_ptr<Visitor>> visitors;
    const auto begin = Clock::now();
    for (std::size_t count = 0; count < order.atOnce; ++count) {
        visitors.push_back(std::make_unique<Visitor>(shared));
        visitors.back()->visit();
    }
    const auto end = begin + order.time;
    while (Clock::now() < end)
        shared.poller.poll(end);
    const std::chrono::duration<double> elapsed = Clock::now() - begin;
    std::cout << "{" << told(shared.times) << ", \"seconds\": " << elapsed.count()
              << ", \"failed\": " << shared.failed << "}" << std::endl;
}

} // namespace quillbox::bench
