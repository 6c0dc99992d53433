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

/// The ports to try for the service with this name, best first. They are in `kServicePorts`, begin
/// where a hash of the name says, which is the same for canonically equivalent names, on every
/// computer and in every version, and leave out those in `ephemeral`, which any program may have,
/// unless that contains all of `kServicePorts`.
std::vector<std::uint16_t> servicePorts(std::string_view name, PortRange ephemeral);

} // namespace quillbox
