#pragma once

#include <cstddef>
#include <cstdint>

namespace quillbox::bench {

/// What a connection is for.
enum class Role : std::uint32_t {
    Sink = 1,   ///< the client sends blocks; after the last one the server sends one byte
    Source = 2, ///< the server sends for as long as the client reads
    Answer = 3, ///< the server answers each request of a size with as many bytes
};

/// The first bytes that a client sends on a connection. Both ends are on one computer and of one
/// build, so the bytes are those of memory.
struct Order {
    Role role = Role::Answer;
    std::uint32_t size = 0; ///< of a request
};

/// Uploads are cut into blocks, the first byte of which tells whether it is the last one: relays
/// end both ways with one, so the end of the stream cannot tell.
constexpr std::size_t kBlockSize = 256UL << 10;
constexpr std::byte kLastBlock{1};

/// The largest request.
constexpr std::size_t kMaximumRequest = 64UL << 10;

} // namespace quillbox::bench
