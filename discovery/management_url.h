#pragma once

#include "platform/net_service.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quillbox {

/// Puts the IPv4 addresses first; otherwise the order stays.
std::vector<SocketAddress> ipv4First(std::vector<SocketAddress> addresses);

/// "https://HOST:PORT/" with the numeric form of the address, or none when it has none. An IPv6
/// host stands in brackets (RFC 3986, section 3.2.2), its zone behind "%25" (RFC 6874).
std::optional<std::string> managementUrl(const SocketAddress& address, std::uint16_t port);

} // namespace quillbox
