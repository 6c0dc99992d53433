#pragma once

#include "platform/values/socket_address.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillbox {

/// "https://HOST:PORT/" with the numeric form of the address; none if it has no such form. An IPv6
/// host is enclosed in brackets (RFC 3986, section 3.2.2), and its zone follows "%25" (RFC 6874).
std::optional<std::string> managementUrl(const SocketAddress& address);

/// The same for a numeric host in the form of getnameinfo. Bytes of a zone that are not UTF-8
/// become U+FFFD.
std::string urlOfNumericHost(std::string_view numericHost, std::uint16_t port);

} // namespace quillbox
