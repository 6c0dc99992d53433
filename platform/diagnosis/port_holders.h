#pragma once

#include "platform/system_facts.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quillbox::diagnosis {

/// A line of /proc/net/udp or udp6, as far as it is of use.
struct UdpSocket {
    std::uint16_t port = 0;
    std::uint32_t user = 0;
    std::uint64_t inode = 0;

    bool operator==(const UdpSocket&) const = default;
};

/// Reads such a table; lines of another form are left out.
std::vector<UdpSocket> udpSocketsIn(std::string_view table);

/// Who has the UDP port open, each once. The programs of other users are told by the system to root
/// alone. Sockets of this very process are left out.
std::vector<PortHolder> findPortHolders(std::uint16_t port);

} // namespace quillbox::diagnosis
