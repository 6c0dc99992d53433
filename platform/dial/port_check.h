#pragma once

#include "platform/values/socket_address.h"
#include "platform/values/system_facts.h"

#include <chrono>
#include <vector>

namespace quillbox {

/// An address and port, and the index of the interface that the socket is bound to; 0 for none.
struct PortToCheck {
    SocketAddress address;
    int bindTo = 0;
};

/// Tests whether the ports accept connections: tries all of them concurrently and closes each
/// connection without sending anything. One result per port, in the same order. Blocks for at most
/// `limit`. The caller decides which addresses may be dialled, and through which interface.
std::vector<PortFacts::State> checkPorts(const std::vector<PortToCheck>& ports,
                                         std::chrono::milliseconds limit);

} // namespace quillbox
