#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dns_sd.h"
#include "platform/dnssd/engine/engine.h"
#include "platform/log.h"
#include "platform/network_monitor.h"
#include "platform/values/reach.h"

#include <memory>

namespace quillbox {

/// DNS-SD on top of an engine, which this starts. All queries and registrations live on `queue`,
/// the engine's queue, which nothing else uses. Services are published as far as `reach` allows.
/// `monitor` and `log` must outlive the object.
///
/// Must be destroyed after the queue has been shut down. That withdraws everything published,
/// sending goodbyes, which takes half a second at the most. Queries and registrations may outlive
/// it, but do nothing then.
std::unique_ptr<DnsSd> makeDnsSd(std::unique_ptr<dnssd::Engine> engine,
                                 std::shared_ptr<DispatchQueue> queue, NetworkMonitor& monitor,
                                 Log& log, Reach reach = Reach::Network);

} // namespace quillbox
