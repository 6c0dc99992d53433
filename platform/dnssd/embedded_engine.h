#pragma once

#include "platform/dnssd/engine.h"

#include <memory>
#include <string>

namespace quillbox::dnssd {

struct EmbeddedEngineOptions {
    /// What is started as the engine process: it calls `runDnsSdEngineChild` when its argument is
    /// `kEngineChildOption`. The default is this very program, even after its file was replaced.
    std::string executable = "/proc/self/exe";
};

/// An mDNS responder of our own, which needs no daemon, no D-Bus and no privilege. It runs in a
/// child process; when that dies the engine is down, and up again as soon as another one runs,
/// after a pause that grows from 0.1 s to 30 s.
std::unique_ptr<Engine> makeEmbeddedEngine(EmbeddedEngineOptions options = {});

} // namespace quillbox::dnssd
