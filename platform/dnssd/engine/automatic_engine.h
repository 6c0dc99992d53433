#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/engine/engine.h"
#include "platform/log.h"
#include "platform/values/dns_sd_mode.h"

#include <chrono>
#include <functional>
#include <memory>

namespace quillbox::dnssd {

/// Called with false when there is no daemon, or when it does not come back in time, and with true
/// each time that it is up.
using DaemonChangedHandler = std::function<void(bool isDaemonUp)>;

/// How long to wait at the start for a daemon that has not answered yet.
inline constexpr std::chrono::milliseconds kStartPatience{300};
/// How long to wait for a daemon that went down to come back (a restart, an upgrade).
inline constexpr std::chrono::milliseconds kRestartPatience{1000};
/// A daemon that goes down so soon after it was taken into use is not waited for: packets that
/// crash it may come again and again, and it takes a second to start. It is used again when it has
/// been up for the whole probation.
inline constexpr std::chrono::milliseconds kYoungAge{5'000};
inline constexpr std::chrono::milliseconds kProbation{30'000};

/// Uses the daemon's engine while it is up, and otherwise, or while it is on probation, the
/// embedded one. To the layer above this is one engine that goes down and comes up. At most one of
/// the two is up at any time: the other has withdrawn everything it published before.
std::unique_ptr<Engine> makeAutomaticEngine(std::shared_ptr<DispatchQueue> queue,
                                            std::unique_ptr<Engine> daemon,
                                            std::unique_ptr<Engine> embedded,
                                            DaemonChangedHandler daemonChanged);

/// The engine that the program uses. `queue` must be of a `DispatchPool`. `daemonChanged` is called
/// in automatic mode only. `log` must outlive the engine.
std::unique_ptr<Engine> makeEngine(DnsSdMode mode, const std::shared_ptr<DispatchQueue>& queue,
                                   Log& log, DaemonChangedHandler daemonChanged = {});

} // namespace quillbox::dnssd
