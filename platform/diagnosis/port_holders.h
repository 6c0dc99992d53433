#pragma once

#include "platform/system_facts.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quillbox::diagnosis {

/// The relevant columns of a line in /proc/net/udp or udp6.
struct UdpSocket {
    std::uint16_t port = 0;
    std::uint32_t user = 0;
    std::uint64_t inode = 0;

    bool operator==(const UdpSocket&) const = default;
};

/// Parses such a table; skips malformed lines.
std::vector<UdpSocket> udpSocketsIn(std::string_view table);

/// The programs that have the UDP port open, each once. Only root can see the programs of other
/// users; their names are empty otherwise. Sockets of this process are left out.
std::vector<PortHolder> findPortHolders(std::uint16_t port);

} // namespace quillbox::diagnosis
