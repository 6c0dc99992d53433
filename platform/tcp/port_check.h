#pragma once

#include "platform/net_service.h"
#include "platform/system_facts.h"

#include <chrono>
#include <vector>

namespace quillbox {

/// Tests whether the ports accept connections: tries all of them concurrently and closes each
/// connection without sending anything. One result per address, in the same order. Blocks for at
/// most `limit`. The caller decides which addresses may be dialled.
std::vector<PortFacts::State> checkPorts(const std::vector<SocketAddress>& addresses,
                                         std::chrono::milliseconds limit);

} // namespace quillbox
