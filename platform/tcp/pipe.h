#pragma once

#include "platform/tcp/transfer.h"

#include <cstddef>
#include <optional>
#include <span>

namespace quillbox {

/// A non-blocking pipe with room for a content of maximum size; owns both ends. No function blocks
/// if the sockets are non-blocking.
class Pipe final {
public:
    /// None if no pipe of this size is available.
    static std::optional<Pipe> open();

    ~Pipe();

    Pipe(Pipe&& other) noexcept;
    Pipe& operator=(Pipe&& other) noexcept;
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    /// Moves at most `limit` bytes from the socket into the pipe.
    Transfer fillFrom(int socket, std::size_t limit);

    /// Moves at most `limit` bytes from the pipe into the socket. After a reset by the peer this
    /// raises SIGPIPE, since splice(2) has no flag against it; the process ignores that signal.
    Transfer drainTo(int socket, std::size_t limit);

    Transfer read(std::span<std::byte> room);

private:
    Pipe(int readEnd, int writeEnd) : readEnd_(readEnd), writeEnd_(writeEnd) {}

    void close();

    int readEnd_;
    int writeEnd_;
};

} // namespace quillbox
