#include "bench/held_sessions.h"

#include "bench/client_stream.h"
#include "bench/order.h"
#include "bench/report.h"

#include <array>
#include <iostream>
#include <string>
#include <vector>

namespace quillbox::bench {

namespace {

using Request = std::array<std::byte, 64>;

Histogram askEach(const std::vector<Descriptor>& sessions)
{
    Histogram times;
    Request request{};
    for (const auto& session : sessions) {
        const auto begin = Clock::now();
        exchange(session.get(), request);
        times.add(Clock::now() - begin);
    }
    return times;
}

} // namespace

void holdSessions(const Target& target, std::size_t count)
{
    const auto address = addressOf(target);
    std::vector<Descriptor> sessions;
    Request request{};
    const auto begin = Clock::now();
    while (sessions.size() < count) {
        sessions.push_back(connectTo(address));
        sendOrder(sessions.back().get(), {.role = Role::Answer, .size = sizeof(Request)});
        exchange(sessions.back().get(), request);
    }
    const std::chrono::duration<double> elapsed = Clock::now() - begin;
    std::cout << "{\"sessions\": " << count << ", \"seconds\": " << elapsed.count() << "}"
              << std::endl;
    std::string line;
    while (std::getline(std::cin, line))
        std::cout << "{" << told(askEach(sessions)) << "}" << std::endl;
}

} // namespace quillbox::bench
