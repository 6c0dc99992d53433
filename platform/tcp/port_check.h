#pragma once

#include "platform/net_service.h"
#include "platform/system_facts.h"

#include <chrono>
#include <vector>

namespace quillbox {

/// Whether the ports take connections: tries all of them at once, and closes what was connected
/// without having said a word. One result an address, in order. Blocks for `limit` at the most.
/// Which addresses may be dialled is the caller's business.
std::vector<PortFacts::State> checkPorts(const std::vector<SocketAddress>& addresses,
                                         std::chrono::milliseconds limit);

} // namespace quillbox
