#pragma once

#include "platform/dnssd/engine.h"

#include <memory>
#include <string>

namespace quillbox::dnssd {

struct EmbeddedEngineOptions {
    /// The executable of the engine process: it must call `runDnsSdEngineChild` when its argument
    /// is `kEngineChildOption`. The default is this program, even if its file has been replaced.
    std::string executable = "/proc/self/exe";
};

/// An engine with its own mDNS responder, which needs no daemon, no D-Bus and no privileges. The
/// responder runs in a child process; when that dies, the engine goes down and restarts it with
/// exponential backoff from 0.1 s to 30 s.
std::unique_ptr<Engine> makeEmbeddedEngine(EmbeddedEngineOptions options = {});

} // namespace quillbox::dnssd
