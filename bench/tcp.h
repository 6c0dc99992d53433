#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include <netinet/in.h>

namespace quillbox::bench {

/// A descriptor that is closed with its owner.
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

/// Where a server is: an IPv4 address in numbers, and a port.
struct Target {
    std::string address;
    std::uint16_t port = 0;
};

/// The outcome of one read or write: bytes, nothing yet, or the end (also by an error).
struct Moved {
    std::size_t count = 0;
    bool isOver = false;
};

/// What cannot be opened throws std::system_error.
sockaddr_in addressOf(const Target& target);
Descriptor listenOn(std::uint16_t port);
/// A connection under way, or made; not blocking, without Nagle's delay.
Descriptor beginConnect(const sockaddr_in& address);
/// A connection that stands within a few seconds.
Descriptor connectTo(const sockaddr_in& address);
/// The next connection that has come, or an empty descriptor.
Descriptor acceptFrom(int listener);

Moved readSome(int socket, std::span<std::byte> room);
Moved writeSome(int socket, std::span<const std::byte> bytes);

/// Lets the process open as many descriptors as it may.
void raiseDescriptorLimit();

} // namespace quillbox::bench
