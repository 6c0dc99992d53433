#pragma once

#include <cstddef>
#include <cstdint>

namespace quillbox::bench {

/// The role of the server on a connection.
enum class Role : std::uint32_t {
    Sink = 1,   ///< the client sends blocks; after the last one the server sends one byte
    Source = 2, ///< the server sends as long as the client reads
    Answer = 3, ///< the server answers each request with as many bytes
};

/// The first bytes that a client sends on a connection. Both ends run on the same computer and are
/// the same build, so the struct is sent as it is in memory.
struct Order {
    Role role = Role::Answer;
    std::uint32_t size = 0; ///< of a request; for Role::Answer
};

/// Uploads consist of blocks, whose first byte says whether it is the last one. The end of the
/// stream cannot mark that: relays close both directions when one ends, so that the server's byte
/// would be lost.
constexpr std::size_t kBlockSize = 256UL << 10;
constexpr std::byte kLastBlock{1};

/// The largest request.
constexpr std::size_t kMaximumRequest = 64UL << 10;

} // namespace quillbox::bench
