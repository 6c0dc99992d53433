#pragma once

#include "platform/listener.h"
#include "platform/network.h"
#include "platform/tcp/tcp_context.h"

#include <cstdint>
#include <memory>
#include <system_error>

namespace quillbox {

/// Opens the port at once; connections queue up there until the listener is started. On failure
/// gives nothing and sets `error`.
///
/// Without a service it is ready as soon as it is started. An error of accepting never ends it: out
/// of descriptors or memory it pauses, until a connection of this program has closed or a fifth of
/// a second has passed, which it says on standard error once an episode.
std::shared_ptr<Listener> makeTcpListener(std::shared_ptr<TcpContext> context,
                                          const TcpParameters& parameters, std::uint16_t port,
                                          std::error_code& error);

} // namespace quillbox
