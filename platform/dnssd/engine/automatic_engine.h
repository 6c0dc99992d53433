#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/engine/automatic_engine_choice.h"
#include "platform/dnssd/engine/engine.h"
#include "platform/log.h"

#include <functional>
#include <memory>

namespace quillbox::dnssd {

enum class DnsSdMode { Automatic, Daemon, Embedded };

/// Called with false when there is no daemon, or when it does not come back in time, and with true
/// each time that it is up.
using DaemonChangedHandler = std::function<void(bool isDaemonUp)>;

/// Uses the daemon's engine while it is up and the embedded one otherwise. To the layer above this
/// is one engine that goes down and comes up. At most one of the two is up at any time: the other
/// has withdrawn everything it published before.
std::unique_ptr<Engine> makeAutomaticEngine(std::shared_ptr<DispatchQueue> queue,
                                            std::unique_ptr<Engine> daemon,
                                            std::unique_ptr<Engine> embedded,
                                            DaemonChangedHandler daemonChanged = {},
                                            AutomaticEngineTimes times = {});

/// The engine that the program uses. `queue` must be of a `DispatchPool`. `daemonChanged` is called
/// in automatic mode only. `log` must outlive the engine.
std::unique_ptr<Engine> makeEngine(DnsSdMode mode, const std::shared_ptr<DispatchQueue>& queue,
                                   Log& log, DaemonChangedHandler daemonChanged = {});

} // namespace quillbox::dnssd
