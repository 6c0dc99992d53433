#pragma once

#include "platform/dnssd/engine.h"

#include <memory>

namespace quillbox::dnssd {

/// avahi-daemon, over the system bus: an engine that is up while the daemon runs.
///
/// Without a bus it tries again when the bus's socket appears, and otherwise after a pause that
/// grows to 10 s; with a bus it waits for the daemon without waking up.
std::unique_ptr<Engine> makeDaemonEngine();

} // namespace quillbox::dnssd
