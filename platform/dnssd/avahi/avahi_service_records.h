#pragma once

#include "platform/dnssd/avahi/avahi_api.h"
#include "platform/dnssd/engine/messages.h"

#include <string>
#include <vector>

namespace quillbox::dnssd {

/// The records by which a registration is found (RFC 6763, sections 4 to 6 and 9), without those of
/// its host. Avahi's own function for this always probes for the name.
/// Empty when a name is invalid. `domain` is the default domain.
std::vector<AvahiGroup::RawRecord> serviceRecords(const RegisterRequest& request,
                                                  const std::string& domain);

} // namespace quillbox::dnssd
