#pragma once

#include "platform/values/endpoint.h"
#include "platform/values/socket_address.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace quillbox {

/// Resolves one DNS-SD service to its socket addresses and port, once.
///
/// Used on the main thread, where it reports as well: exactly once, never inside `resolve`, and not
/// after `stop`.
class NetService {
public:
    /// Called on success; `addresses` and `port` then hold the result. May destroy the service.
    using DidResolveHandler = std::function<void()>;

    /// Called on timeout or failure. May destroy the service.
    using DidNotResolveHandler = std::function<void()>;

    virtual ~NetService() = default;

    virtual void setHandlers(DidResolveHandler didResolve, DidNotResolveHandler didNotResolve) = 0;

    /// Starts resolving; `timeout` is measured on the monotonic clock. Ends when an IPv4 address is
    /// found, which is used first; with IPv6 addresses only, when both address families are
    /// settled, or after half a second.
    virtual void resolve(std::chrono::milliseconds timeout) = 0;

    /// Idempotent; nothing is reported afterwards.
    virtual void stop() = 0;

    virtual const std::vector<SocketAddress>& addresses() const = 0;

    /// In host byte order.
    virtual std::uint16_t port() const = 0;
};

} // namespace quillbox
