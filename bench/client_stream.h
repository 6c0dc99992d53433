#pragma once

#include "bench/order.h"
#include "bench/poller.h"
#include "bench/tcp.h"

#include <span>

namespace quillbox::bench {

/// How long a client waits beyond its time for what is under way, before it gives up.
constexpr std::chrono::seconds kPatience{60};

/// Writes all of it at once, which succeeds on a connection that has nothing under way. Throws when
/// it does not.
void writeWhole(int socket, std::span<const std::byte> bytes);

/// Tells the server what the connection is for.
void sendOrder(int socket, const Order& order);

/// Sends the first `size` bytes of `buffer` and reads as many back, waiting for them.
void exchange(int socket, std::span<std::byte> buffer);

/// Throws, as a connection has ended that should stand.
[[noreturn]] void endedEarly();

/// Throws when `until` lies far in the past.
void checkPatience(Clock::time_point until);

} // namespace quillbox::bench
