#pragma once

#include "platform/tcp/transfer.h"

#include <cstddef>
#include <optional>
#include <span>

namespace quillbox {

/// A pipe of the size of a whole content, both ends in one hand. Nothing here blocks, as long as
/// the sockets do not.
class Pipe final {
public:
    /// None when the system has none to give, or only a smaller one.
    static std::optional<Pipe> open();

    ~Pipe();

    Pipe(Pipe&& other) noexcept;
    Pipe& operator=(Pipe&& other) noexcept;
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    /// Moves bytes from the socket into the pipe, `limit` at the most.
    Transfer fillFrom(int socket, std::size_t limit);

    /// Moves bytes from the pipe into the socket, `limit` at the most. On a socket whose peer has
    /// reset it this raises SIGPIPE, which the process ignores: there is no flag against it.
    Transfer drainTo(int socket, std::size_t limit);

    Transfer read(std::span<std::byte> room);

private:
    Pipe(int readEnd, int writeEnd) : readEnd_(readEnd), writeEnd_(writeEnd) {}

    void close();

    int readEnd_;
    int writeEnd_;
};

} // namespace quillbox
