#pragma once

#include "platform/dnssd/messages.h"

#include <set>
#include <string>

namespace quillbox::dnssd {

/// The host that a service of this computer's is published on: a name and a loopback address that
/// belong to that service alone, since file browsers tell servers apart by host and not by port.
struct HostIdentity {
    std::string hostName; ///< like "my-pc-office-1a2b3c4d.local"
    Address loopback;     ///< in 127.0.0.0/8

    bool operator==(const HostIdentity&) const = default;
};

/// Gives each registration of this process an identity of its own, the same one for the same
/// service name whenever it can. Belongs to the center's queue.
class HostIdentities final {
public:
    HostIdentities() = default;
    HostIdentities(const HostIdentities&) = delete;
    HostIdentities& operator=(const HostIdentities&) = delete;

    /// `number` is 1 at first and grows with each collision of the host name; it is raised further
    /// past names that this process has given already. `computer` is like "my-pc.local".
    HostIdentity claim(const std::string& computer, const std::string& serviceName,
                       unsigned& number);

    /// Gives an identity back; nothing for one that was not claimed.
    void release(const HostIdentity& identity);

private:
    std::set<std::string> hostNames;
    std::set<Address> loopbacks;
};

} // namespace quillbox::dnssd
