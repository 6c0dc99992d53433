#include "bench/client_stream.h"

#include <stdexcept>

#include <poll.h>

namespace quillbox::bench {

void writeWhole(int socket, std::span<const std::byte> bytes)
{
    if (writeSome(socket, bytes).count != bytes.size())
        throw std::runtime_error("a request could not be written at once");
}

void sendOrder(int socket, const Order& order)
{
    writeWhole(socket, std::as_bytes(std::span(&order, 1)));
}

void placeOrder(int socket, const Order& order)
{
    sendOrder(socket, order);
    std::byte answer{};
    readWhole(socket, std::span(&answer, 1));
}

void exchange(int socket, std::span<std::byte> buffer)
{
    writeWhole(socket, buffer);
    readWhole(socket, buffer);
}

void readWhole(int socket, std::span<std::byte> room)
{
    const auto until = Clock::now();
    for (std::size_t received = 0; received < room.size();) {
        pollfd wait{.fd = socket, .events = POLLIN, .revents = 0};
        ::poll(&wait, 1, 1000);
        const auto [count, isOver] = readSome(socket, room.subspan(received));
        if (isOver)
            endedEarly();
        received += count;
        checkPatience(until);
    }
}

void endedEarly()
{
    throw std::runtime_error("a connection ended early");
}

void checkPatience(Clock::time_point until)
{
    if (Clock::now() > until + kPatience)
        throw std::runtime_error("timeout: bytes that were sent did not arrive");
}

} // namespace quillbox::bench
