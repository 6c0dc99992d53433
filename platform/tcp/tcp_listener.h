#pragma once

#include "platform/listener.h"
#include "platform/network.h"
#include "platform/tcp/tcp_context.h"

#include <cstdint>
#include <memory>
#include <system_error>

namespace quillbox {

/// Opens the port at once; connections wait in the backlog until the listener is started. On
/// failure returns null and sets `error`. With `kAnyPort` the listener moves to the first free port
/// of `servicePorts` when it is started with a service, and stays at the one that the kernel has
/// chosen if none is free. If an earlier listener of this context has the service, it waits up to a
/// second for that to close.
///
/// A listener without a service is ready as soon as it is started. An error of accept(2) never ends
/// it: when out of file descriptors or memory, it pauses for 200 ms, or until a connection of this
/// program is closed, and reports this on standard error once per episode.
std::shared_ptr<Listener> makeTcpListener(std::shared_ptr<TcpContext> context,
                                          const TcpParameters& parameters, std::uint16_t port,
                                          std::error_code& error);

} // namespace quillbox
