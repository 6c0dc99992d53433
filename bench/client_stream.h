#pragma once

#include "bench/order.h"
#include "bench/poller.h"
#include "bench/tcp.h"

#include <span>

namespace quillbox::bench {

/// How long after the end of a measurement a client waits for pending data before it gives up.
constexpr std::chrono::seconds kPatience{60};

/// Writes all bytes with one call; throws if that fails. It succeeds on a connection without
/// pending data.
void writeWhole(int socket, std::span<const std::byte> bytes);

/// Tells the server the role of the connection.
void sendOrder(int socket, const Order& order);

/// Tells a server that is to be a sink or a source, and waits for its answer.
void placeOrder(int socket, const Order& order);

/// Reads as many bytes as `room` has.
void readWhole(int socket, std::span<std::byte> room);

/// Sends `buffer` and waits until as many bytes have been read back into it.
void exchange(int socket, std::span<std::byte> buffer);

/// Throws: a connection has ended that should still be open.
[[noreturn]] void endedEarly();

/// Throws if `until` was more than kPatience ago.
void checkPatience(Clock::time_point until);

} // namespace quillbox::bench
