#pragma once

#include "platform/dispatch/dispatch_pool.h"
#include "platform/network_monitor.h"

#include <memory>

namespace quillbox {

/// Watches the kernel's network configuration through rtnetlink, on the pool's threads. It costs
/// nothing while nothing changes. Changes within a tenth of a second are one call.
///
/// Never none: where the kernel cannot be watched, which is said once on standard error, the
/// monitor still tells the addresses. It outlives its subscriptions, unless the pool has been shut
/// down.
std::unique_ptr<NetworkMonitor> makeNetworkMonitor(DispatchPool& pool);

} // namespace quillbox
