#pragma once

#include "platform/diagnosis/interface_survey.h"

#include <chrono>
#include <string>

namespace quillbox::diagnosis {

/// Asks by multicast DNS for the services of `type` on every interface that has addresses, listens
/// for `duration`, and writes into the facts what became of it. Blocks.
///
/// It asks from a port of its own, to which answers come alone (RFC 6762, section 6.7), and from
/// UDP 5353, to which they come for all; what it sent comes back in to UDP 5353 by way of the
/// packet filter, as what others send does. Its place on that port is bound to the group's address,
/// so that it takes nothing from a responder that is asked directly.
void probeMulticast(Survey& survey, const std::string& type, std::chrono::milliseconds duration);

} // namespace quillbox::diagnosis
