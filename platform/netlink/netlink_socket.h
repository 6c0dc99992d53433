#pragma once

#include "platform/posix/file_descriptor.h"
#include "platform/values/socket_address.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <system_error>

namespace quillbox {

/// Opens a non-blocking rtnetlink socket that receives changes of links, addresses and routes. Sets
/// `error` on failure.
FileDescriptor openRouteSocket(std::error_code& error);

enum class RouteNews {
    None,    ///< nothing left to read
    Other,   ///< a message about something else
    Changed, ///< links, addresses or routes changed, or messages were lost
    Broken,  ///< the socket is unusable
};

/// Reads one datagram.
RouteNews readRouteNews(int socket);

/// Asks the kernel for routes (RTM_GETROUTE, rtnetlink(7)). Keeps its socket, so that it can ask
/// when no file descriptor is available. Thread-safe.
class RouteLookup final {
public:
    struct Route {
        bool isUnicast = false; ///< to another host; not local, broadcast, multicast or blocked
        int interfaceIndex = 0; ///< of the interface that packets leave through
    };

    /// Opens the socket, in the thread's network namespace. Without one, no lookup succeeds.
    RouteLookup();

    /// Looks up the route of a TCP connection to an IPv4 or IPv6 address and port. Policy rules for
    /// a source address or port do not match, as the connection has none yet. With `boundTo`, finds
    /// the route of a socket that is bound to the interface with this index; 0 for a socket that is
    /// not bound. nullopt without an error if there is no route, with an error if the kernel could
    /// not be asked. Does not block.
    std::optional<Route> find(const SocketAddress& address, int boundTo, std::error_code& error);

private:
    FileDescriptor socket_;
    std::mutex mutex_;
    std::uint32_t lastNumber_ = 0; ///< guarded by the mutex, like the use of the socket
};

} // namespace quillbox
