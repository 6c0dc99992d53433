#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/dns_sd.h"
#include "platform/dnssd/engine.h"
#include "platform/network_monitor.h"
#include "platform/reach.h"

#include <memory>

namespace quillbox {

/// DNS-SD by way of an engine, which is started. All that stands lives on `queue`, a serial queue
/// that nobody else uses. Services are published as far as `reach` says. `monitor` outlives the
/// object.
///
/// Destroying it withdraws all that is published, sending goodbyes, which takes half a second at
/// the most; what is still asked then gets no more answers. Not from one of its own handlers.
std::unique_ptr<DnsSd> makeDnsSd(std::unique_ptr<dnssd::Engine> engine,
                                 std::shared_ptr<DispatchQueue> queue, NetworkMonitor& monitor,
                                 Reach reach = Reach::Network);

} // namespace quillbox
