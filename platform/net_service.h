#pragma once

#include "platform/endpoint.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace quillbox {

/// A socket address in this system's `sockaddr` layout, as bytes.
using SocketAddress = std::vector<std::byte>;

/// Resolves one DNS-SD service to its socket addresses and port, once.
///
/// Belongs to the main thread: it is used there and reports there. It reports exactly once, never
/// inside `resolve`, and not at all after `stop`.
class NetService {
public:
    /// Called on success; `addresses` and `port` then hold the result. May drop the service.
    using DidResolveHandler = std::function<void()>;

    /// Called when the time ran out or nothing can be resolved. May drop the service.
    using DidNotResolveHandler = std::function<void()>;

    virtual ~NetService() = default;

    virtual void setHandlers(DidResolveHandler didResolve, DidNotResolveHandler didNotResolve) = 0;

    /// Starts, with a limit by the monotonic clock. It ends when every address family has answered,
    /// or half a second after the first one has.
    virtual void resolve(std::chrono::milliseconds timeout) = 0;

    /// Idempotent; no report comes after it.
    virtual void stop() = 0;

    virtual const std::vector<SocketAddress>& addresses() const = 0;

    /// In host byte order.
    virtual std::uint16_t port() const = 0;
};

} // namespace quillbox
