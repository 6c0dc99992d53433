#include "platform/tcp/pipe.h"

#include "platform/connection.h"

#include <array>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace quillbox {

namespace {

/// Equals the default pipe-max-size (pipe(7)), the largest size allowed without privileges.
constexpr int kPipeSize = static_cast<int>(kMaximumContentSize);

/// Never SPLICE_F_MORE: it would delay the end of a small message by 200 ms.
constexpr unsigned kFlags = SPLICE_F_MOVE | SPLICE_F_NONBLOCK;

} // namespace

std::optional<Pipe> Pipe::open()
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        return std::nullopt;
    Pipe pipe(ends[0], ends[1]);
    if (::fcntl(ends[1], F_SETPIPE_SZ, kPipeSize) < 0)
        return std::nullopt;
    return pipe;
}

Pipe::~Pipe()
{
    close();
}

Pipe::Pipe(Pipe&& other) noexcept
    : readEnd_(std::exchange(other.readEnd_, -1)), writeEnd_(std::exchange(other.writeEnd_, -1))
{
}

Pipe& Pipe::operator=(Pipe&& other) noexcept
{
    if (this != &other) {
        close();
        readEnd_ = std::exchange(other.readEnd_, -1);
        writeEnd_ = std::exchange(other.writeEnd_, -1);
    }
    return *this;
}

Transfer Pipe::fillFrom(int socket, std::size_t limit)
{
    return uninterrupted(
        [&] { return ::splice(socket, nullptr, writeEnd_, nullptr, limit, kFlags); });
}

Transfer Pipe::drainTo(int socket, std::size_t limit)
{
    return uninterrupted(
        [&] { return ::splice(readEnd_, nullptr, socket, nullptr, limit, kFlags); });
}

Transfer Pipe::read(std::span<std::byte> room)
{
    return uninterrupted([&] { return ::read(readEnd_, room.data(), room.size()); });
}

void Pipe::close()
{
    if (readEnd_ >= 0)
        ::close(readEnd_);
    if (writeEnd_ >= 0)
        ::close(writeEnd_);
}

} // namespace quillbox
