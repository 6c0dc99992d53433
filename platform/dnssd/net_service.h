#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/dns_sd.h"
#include "platform/net_service.h"

#include <memory>

namespace quillbox {

/// A resolver of one service. `dnsSd` outlives it. With nothing found it waits until its time is
/// up, since a phone that sleeps answers late.
std::unique_ptr<NetService> makeNetService(DnsSd& dnsSd, std::shared_ptr<DispatchQueue> mainQueue,
                                           ServiceEndpoint service);

} // namespace quillbox
