#pragma once

#include "platform/dispatch/dispatch_pool.h"
#include "platform/network_monitor.h"

#include <memory>

namespace quillbox {

/// Monitors the kernel's network configuration through rtnetlink, on the pool's threads. It costs
/// nothing while nothing changes. Changes within 100 ms cause one notification.
///
/// Never null: if the kernel cannot be monitored, which is reported once on standard error, the
/// monitor still returns the addresses. It must outlive its subscriptions, unless the pool has been
/// shut down.
std::unique_ptr<NetworkMonitor> makeNetworkMonitor(DispatchPool& pool);

} // namespace quillbox
