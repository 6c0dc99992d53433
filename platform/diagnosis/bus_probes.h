#pragma once

#include "platform/system_facts.h"

#include <chrono>

/// Questions to the message buses. Each is on a connection of its own, starts no service, and
/// blocks no longer than a few times `limit` unless the bus itself is stuck, which only the caller
/// can bound. Any thread, while there is an application object.
namespace quillbox::diagnosis {

AvahiFacts probeAvahi(std::chrono::milliseconds limit);

/// Whether firewalld runs.
Seen probeFirewalld(std::chrono::milliseconds limit);

/// Whether a panel on the session bus shows status notifier items.
Seen probeStatusPanel(std::chrono::milliseconds limit);

} // namespace quillbox::diagnosis
