#pragma once

#include "platform/dnssd/automatic_engine_choice.h"
#include "platform/dnssd/embedded_engine.h"
#include "platform/dnssd/engine.h"
#include "platform/log.h"

#include <functional>
#include <memory>
#include <string>

namespace quillbox::dnssd {

enum class DnsSdMode { Automatic, Daemon, Embedded };

using EngineFactory = std::function<std::unique_ptr<Engine>()>;

struct AutomaticEngineOptions {
    EngineFactory makeDaemon;
    /// Called each time the embedded engine is needed.
    EngineFactory makeEmbedded;
    /// Told once, on any thread, what the user should know when there is no daemon.
    std::function<void(const std::string&)> notice;
    AutomaticEngineTimes times;
};

/// The daemon's engine whenever it is up, else the embedded one: to the layer above it is one
/// engine that goes away and comes back. Only one of the two is up at any time, and the one that is
/// left has withdrawn what it published before the other is up.
std::unique_ptr<Engine> makeAutomaticEngine(AutomaticEngineOptions options);

/// The engine that the program runs on. The automatic one says on standard error, once, that there
/// is no daemon. Each engine tells the log, which outlives it, what it does.
std::unique_ptr<Engine> makeEngine(DnsSdMode mode, Log& log, EmbeddedEngineOptions embedded = {});

} // namespace quillbox::dnssd
