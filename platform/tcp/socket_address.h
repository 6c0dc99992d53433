#pragma once

#include "platform/net_service.h"

#include <cstdint>
#include <optional>
#include <string>

namespace quillbox {

/// AF_INET or AF_INET6; AF_UNSPEC if the bytes are not a valid address.
int familyOf(const SocketAddress& address);

/// In host byte order; 0 if the bytes are not a valid address.
std::uint16_t portOf(const SocketAddress& address);

SocketAddress withPort(SocketAddress address, std::uint16_t port);

/// Parses a numeric host: "192.0.2.1", "::1", "[::1]", "fe80::1%eth0". None for a name.
std::optional<SocketAddress> parseNumericHost(const std::string& host, std::uint16_t port);

/// Formats the host as `parseNumericHost` accepts it, without brackets. None if the bytes are not a
/// valid address.
std::optional<std::string> numericHost(const SocketAddress& address);

} // namespace quillbox
