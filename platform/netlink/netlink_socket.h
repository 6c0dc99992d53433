#pragma once

#include <system_error>

namespace quillbox {

/// Opens a non-blocking rtnetlink socket that receives changes of links, addresses and routes.
/// Returns -1 and sets `error` on failure. The caller closes the socket.
int openRouteSocket(std::error_code& error);

enum class RouteNews {
    None,    ///< nothing left to read
    Other,   ///< a message about something else
    Changed, ///< links, addresses or routes changed, or messages were lost
    Broken,  ///< the socket is unusable
};

/// Reads one datagram.
RouteNews readRouteNews(int socket);

} // namespace quillbox
