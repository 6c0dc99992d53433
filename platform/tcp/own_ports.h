#pragma once

#include "platform/network.h"
#include "platform/posix/file_descriptor.h"
#include "platform/values/reach.h"

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
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
};

/// The ports of this program's listeners. Thread-safe.
class OwnPorts final {
public:
    /// `reach`: from where the ports that it opens can be reached.
    explicit OwnPorts(Reach reach = Reach::Network) : reach_(reach) {}

    /// Opens a port, which the kernel chooses if it is `kAnyPort`. `service` is as in `add`. On
    /// failure returns none and sets `error`.
    std::optional<ListeningPort> open(std::uint16_t port, bool allowsReuse, std::error_code& error,
                                      std::string service = {});

    /// Opens the best port of the service with this name that is free (`servicePorts`). None if
    /// there is none better than `instead`.
    std::optional<ListeningPort> openForService(const std::string& service, bool allowsReuse,
                                                std::uint16_t instead);

    /// The port is one of the program's own until the returned reference is dropped, which must
    /// happen after it was closed and before this object is destroyed. `service` is the name of the
    /// service that has the port; empty if none.
    [[nodiscard]] std::shared_ptr<void> add(std::uint16_t port, std::string service = {});

    bool contains(std::uint16_t port) const;

    /// If a listener has a port for this service (or for one with a canonically equivalent name),
    /// calls `removed` once it is closed, on the thread that closes it, and returns true.
    bool afterRemoval(const std::string& service, std::function<void()> removed);

private:
    struct Entry {
        std::uint16_t port = 0;
        std::string service;
        std::vector<std::function<void()>> removed;
    };

    void remove(std::list<Entry>::iterator entry);

    const Reach reach_;
    mutable std::mutex mutex_;
    std::list<Entry> ports_;
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
