#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/dns_sd.h"
#include "platform/dnssd/engine/engine.h"
#include "platform/network_monitor.h"
#include "platform/reach.h"

#include <memory>

namespace quillbox {

/// DNS-SD on top of an engine, which this starts. All queries and registrations live on `queue`, a
/// serial queue that nothing else uses. Services are published as far as `reach` allows. `monitor`
/// must outlive the object.
///
/// Destroying it withdraws everything published, sending goodbyes, which takes half a second at the
/// most; active queries get no more answers. Must not be destroyed in one of its own handlers.
std::unique_ptr<DnsSd> makeDnsSd(std::unique_ptr<dnssd::Engine> engine,
                                 std::shared_ptr<DispatchQueue> queue, NetworkMonitor& monitor,
                                 Reach reach = Reach::Network);

} // namespace quillbox
