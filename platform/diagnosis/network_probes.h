#pragma once

#include "platform/values/socket_address.h"
#include "platform/values/system_facts.h"

#include <chrono>
#include <string>
#include <vector>

namespace quillbox::diagnosis {

struct Survey {
    std::vector<InterfaceFacts> interfaces; ///< without the loopback interface
    std::vector<SocketAddress> addresses;   ///< of this computer, on all interfaces
};

/// Reads the interfaces of this computer from the kernel, which needs no privileges. What cannot be
/// read is left out. Sends nothing to the network.
Survey surveyInterfaces();

/// Queries the services of `type` by multicast DNS on every running interface with multicast and an
/// address, except for VPNs, listens for `duration`, and writes the results into the facts. Blocks.
///
/// It queries from an ephemeral port, to which responders answer by unicast (RFC 6762,
/// section 6.7), and from UDP 5353, which they answer by multicast. Its own queries are looped back
/// to UDP 5353 and pass the packet filter like those of other hosts. The socket on UDP 5353 is
/// bound to the group's address, so that it receives no unicast queries to a responder on this
/// computer.
void probeMulticast(Survey& survey, const std::string& type, std::chrono::milliseconds duration);

} // namespace quillbox::diagnosis
