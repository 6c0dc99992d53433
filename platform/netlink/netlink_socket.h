#pragma once

#include <system_error>

namespace quillbox {

/// Opens a non-blocking rtnetlink socket that hears of changes of links, addresses and routes.
/// -1 and an error on failure. The caller closes it.
int openRouteSocket(std::error_code& error);

enum class RouteNews {
    None,    ///< nothing left to read
    Other,   ///< a message about something else
    Changed, ///< links, addresses or routes changed, or messages were lost
    Broken,  ///< the socket is of no use any more
};

/// Reads one datagram.
RouteNews readRouteNews(int socket);

} // namespace quillbox
