#pragma once

#include "platform/dnssd/engine/automatic_engine_choice.h"
#include "platform/dnssd/engine/embedded_engine.h"
#include "platform/dnssd/engine/engine.h"
#include "platform/log.h"

#include <functional>
#include <memory>
#include <string>

namespace quillbox::dnssd {

enum class DnsSdMode { Automatic, Daemon, Embedded };

using EngineFactory = std::function<std::unique_ptr<Engine>()>;

struct AutomaticEngineOptions {
    EngineFactory makeDaemon;
    /// Called each time the embedded engine is started.
    EngineFactory makeEmbedded;
    /// Called on any thread: with false when there is no daemon, or when it does not come back in
    /// time, and with true each time that it is up.
    std::function<void(bool isDaemonUp)> daemonChanged = {};
    AutomaticEngineTimes times = {};
};

/// Uses the daemon's engine while it is up and the embedded one otherwise. To the layer above this
/// is one engine that goes down and comes up. At most one of the two is up at any time: the other
/// has withdrawn everything it published before.
std::unique_ptr<Engine> makeAutomaticEngine(AutomaticEngineOptions options);

/// The engine that the program uses. `daemonChanged` is called in automatic mode only. Each engine
/// logs its activity to `log`, which must outlive it.
std::unique_ptr<Engine> makeEngine(DnsSdMode mode, Log& log,
                                   std::function<void(bool isDaemonUp)> daemonChanged = {});

} // namespace quillbox::dnssd
