#pragma once

#include "platform/network.h"
#include "platform/posix/file_descriptor.h"
#include "platform/tcp/tcp_context.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace quillbox {

/// A port on which the kernel accepts connections; closed by the destructor.
struct ListeningPort {
    std::shared_ptr<void> entry; ///< in `OwnPorts`; dropped after the socket is closed
    FileDescriptor socket;
    std::uint16_t number = 0;

    /// Opens a port, which the kernel chooses if it is `kAnyPort`. `service` is what `OwnPorts` is
    /// told. On failure returns none and sets `error`.
    static std::optional<ListeningPort> open(TcpContext& context, std::uint16_t port,
                                             bool allowsReuse, std::error_code& error,
                                             std::string service = {});

    /// Opens the best port of the service with this name that is free (`servicePorts`). None if
    /// there is none better than `instead`.
    static std::optional<ListeningPort> openForService(TcpContext& context,
                                                       const std::string& service, bool allowsReuse,
                                                       std::uint16_t instead);
};

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
