#pragma once

#include "platform/dnssd/engine/messages.h"
#include "platform/network_monitor.h"
#include "platform/values/reach.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quillbox::dnssd {

/// How many addresses of a host are published. A registration of an engine is limited to 32
/// records, including three for the service itself.
inline constexpr std::size_t kMaximumHostAddresses = 28;
inline constexpr std::size_t kMaximumLoopbacks = 1;

/// The addresses of this computer, kept up to date for the registrations that publish them. Belongs
/// to the center's queue.
class LocalAddresses final {
public:
    explicit LocalAddresses(NetworkMonitor& networkMonitor, Reach from = Reach::Network);
    LocalAddresses(const LocalAddresses&) = delete;
    LocalAddresses& operator=(const LocalAddresses&) = delete;

    /// Reads the current addresses, after each change of the network. Whether they have changed.
    bool refresh();

    /// Where services are published: an interface index, or `kEveryInterface`.
    std::int32_t publishedOn() const;

    /// The addresses of a host of this computer on the interfaces where it is published, with
    /// `onLoopback` in place of the loopback interface's own: every host has 127.0.0.1, so it does
    /// not distinguish them.
    std::vector<HostAddress> hostAddresses(const Address& onLoopback) const;

private:
    const Reach reach;
    NetworkMonitor& monitor;
    std::vector<InterfaceAddress> current;
};

} // namespace quillbox::dnssd
