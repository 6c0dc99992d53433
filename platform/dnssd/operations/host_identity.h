#pragma once

#include "platform/dnssd/engine/messages.h"

#include <set>
#include <string>

namespace quillbox::dnssd {

/// The host that a service of this computer is published on: a host name and a loopback address
/// that no other service uses, because file browsers distinguish servers by host, not by port.
struct HostIdentity {
    std::string hostName; ///< like "office-my-pc-1a2b3c4d.local"
    Address loopback;     ///< in 127.0.0.0/8

    bool operator==(const HostIdentity&) const = default;
};

/// Gives each registration of this process an identity of its own, the same one for the same
/// service name whenever possible. Belongs to the center's queue.
class HostIdentities final {
public:
    HostIdentities() = default;
    HostIdentities(const HostIdentities&) = delete;
    HostIdentities& operator=(const HostIdentities&) = delete;

    /// `number` starts at 1 and is incremented by the caller at each conflict of the host name;
    /// this function increments it further while the name is claimed in this process. `computer` is
    /// like "my-pc.local".
    HostIdentity claim(const std::string& computer, const std::string& serviceName,
                       unsigned& number);

    /// Releases an identity; no effect for one that is not claimed.
    void release(const HostIdentity& identity);

private:
    std::set<std::string> hostNames;
    std::set<Address> loopbacks;
};

} // namespace quillbox::dnssd
