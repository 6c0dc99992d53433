#pragma once

#include "platform/values/socket_address.h"

#include <cstdint>
#include <string>

namespace quillbox {

/// Socket addresses from their text forms, for tests. The port is in host byte order.
SocketAddress ipv4Address(const std::string& text, std::uint16_t port = 0);
SocketAddress ipv6Address(const std::string& text, std::uint32_t scope = 0, std::uint16_t port = 0);

} // namespace quillbox
