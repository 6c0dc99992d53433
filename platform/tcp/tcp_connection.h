#pragma once

#include "platform/connection.h"
#include "platform/endpoint.h"
#include "platform/tcp/socket.h"
#include "platform/tcp/tcp_context.h"
#include "platform/tcp/traffic_ledger.h"

#include <memory>

namespace quillbox {

/// An accepted connection, ready as soon as it is started. If it is destroyed before, it is closed.
/// `client` is its peer's address; `session` counts it until it is closed.
std::shared_ptr<Connection> makeAcceptedConnection(std::shared_ptr<TcpContext> context,
                                                   std::unique_ptr<Socket> socket,
                                                   SocketAddress client,
                                                   std::unique_ptr<CountedSession> session);

/// A connection to `endpoint`, which connects when it is started; `client` as in `TcpParameters`,
/// an accepted connection of this backend, which is started on the same queue.
std::shared_ptr<Connection> makeOutgoingConnection(std::shared_ptr<TcpContext> context,
                                                   const Endpoint& endpoint,
                                                   const std::weak_ptr<Connection>& client);

} // namespace quillbox
