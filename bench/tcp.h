#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include <netinet/in.h>

namespace quillbox::bench {

/// Owns a file descriptor.
class Descriptor final {
public:
    explicit Descriptor(int value = -1) : value_(value) {}
    ~Descriptor() { reset(); }

    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        reset(std::exchange(other.value_, -1));
        return *this;
    }

    int get() const { return value_; }
    void reset(int value = -1);

private:
    int value_;
};

/// Where a server is: a numeric IPv4 address and a port.
struct Target {
    std::string address;
    std::uint16_t port = 0;
};

/// The result of one read or write: bytes, nothing yet (both zero), or the end (also on errors).
struct Moved {
    std::size_t count = 0;
    bool isOver = false;
};

/// Throws std::invalid_argument if the address is not numeric IPv4.
sockaddr_in addressOf(const Target& target);
/// These throw std::system_error if a socket cannot be opened.
Descriptor listenOn(std::uint16_t port);
/// A non-blocking socket with TCP_NODELAY, connected or still connecting.
Descriptor beginConnect(const sockaddr_in& address);
/// A connected socket; throws if that takes more than 10 s.
Descriptor connectTo(const sockaddr_in& address);
/// The next accepted connection, or an empty descriptor if there is none.
Descriptor acceptFrom(int listener);

Moved readSome(int socket, std::span<std::byte> room);
Moved writeSome(int socket, std::span<const std::byte> bytes);
/// Writes both one after the other, with one call.
Moved writeSome(int socket, std::span<const std::byte> first, std::span<const std::byte> second);

/// Raises the soft limit of file descriptors to the hard limit.
void raiseDescriptorLimit();

} // namespace quillbox::bench
