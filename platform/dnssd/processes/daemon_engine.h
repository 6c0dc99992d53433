#pragma once

#include "platform/dnssd/engine/engine.h"

#include <memory>

namespace quillbox::dnssd {

/// An engine on top of avahi-daemon, over the system bus; up while the daemon runs.
///
/// Without a bus it reconnects when the bus's socket appears, and otherwise with exponential
/// backoff up to 10 s; with a bus it waits for the daemon without waking up.
std::unique_ptr<Engine> makeDaemonEngine();

} // namespace quillbox::dnssd
