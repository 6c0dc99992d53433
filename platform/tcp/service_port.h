#pragma once

#include "platform/network.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quillbox {

/// The range from which the kernel chooses by itself in this network namespace. Linux's default
/// where it cannot be read, as in the service unit, which hides /proc/sys.
PortRange ephemeralPorts();

/// The range in the form of /proc/sys/net/ipv4/ip_local_port_range: "32768\t60999\n". Linux's
/// default for any other text.
PortRange parsePortRange(const std::string& text);

/// The ports to try for the service with this name, best first: the same ones for canonically
/// equivalent names, on every computer and in every version. They are in `kServicePorts` and,
/// unless that is in `ephemeral` as a whole, outside `ephemeral`, from which any program may have
/// them.
std::vector<std::uint16_t> servicePorts(std::string_view name, PortRange ephemeral);

} // namespace quillbox
