#pragma once

#include "platform/dnssd/engine/engine.h"
#include "platform/dnssd/engine/engine_child_process.h"

#include <chrono>
#include <memory>
#include <string>

namespace quillbox::dnssd {

struct EmbeddedEngineOptions {
    /// The executable of the engine process: it must call `runDnsSdEngineChild` when its argument
    /// is `kEngineChildOption`.
    std::string executable = kThisProgram;
    /// How long the process may take to come up, and how long it may then say nothing: one that
    /// takes longer hangs, and is replaced.
    std::chrono::milliseconds startPatience{5'000};
    std::chrono::milliseconds patience{3 * kAliveInterval};
};

/// An engine with its own mDNS responder, which needs no daemon, no D-Bus and no privileges. The
/// responder runs in a child process; when that dies or hangs, the engine goes down and starts
/// another one: after 50 ms, and with exponential backoff up to 30 s if it keeps dying within a
/// second.
std::unique_ptr<Engine> makeEmbeddedEngine(EmbeddedEngineOptions options = {});

} // namespace quillbox::dnssd
