#pragma once

#include <cstddef>
#include <cstdint>

namespace quillbox::bench {

/// The role of the server on a connection. Sink and Source answer the order with one byte, so that
/// the client knows when a connection through a relay is complete.
enum class Role : std::uint32_t {
    Sink = 1,   ///< the client sends blocks; after the last one the server sends a Histogram of
                ///< their latencies
    Source = 2, ///< the server sends blocks as long as the client reads, once it got a Clock::rep:
                ///< the time at which all streams begin
    Answer = 3, ///< the server answers each request with as many bytes
};

/// How fast the blocks of a stream follow each other. Several streams that share the air take its
/// aggregates in turn.
struct Pace {
    std::uint64_t bytesPerSecond = 0; ///< of all streams; 0: as fast as possible
    std::uint32_t stream = 0;
    std::uint32_t streams = 1;
};

/// The first bytes that a client sends on a connection. Both ends run on the same computer and are
/// the same build, so the struct is sent as it is in memory.
struct Order {
    Role role = Role::Answer;
    std::uint32_t size = 0; ///< of a request; for Role::Answer
    Pace pace{};            ///< for Role::Source
};

/// The largest request.
constexpr std::size_t kMaximumRequest = 64UL << 10;

} // namespace quillbox::bench
