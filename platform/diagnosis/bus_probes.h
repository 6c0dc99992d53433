#pragma once

#include "platform/values/system_facts.h"

#include <chrono>

/// Queries to the message buses. Each uses its own connection, activates no service, and blocks for
/// at most a few times `limit`. Connecting to a bus that is stuck has no timeout, so the caller
/// must bound it. Callable on any thread while the application object exists.
namespace quillbox::diagnosis {

AvahiFacts probeAvahi(std::chrono::milliseconds limit);

/// Whether firewalld is running.
Seen probeFirewalld(std::chrono::milliseconds limit);

/// Whether a panel on the session bus shows StatusNotifierItems.
Seen probeStatusPanel(std::chrono::milliseconds limit);

} // namespace quillbox::diagnosis
