#pragma once

#include "platform/dispatch_queue.h"
#include "platform/dnssd/dns_sd.h"
#include "platform/net_service.h"

#include <memory>

namespace quillbox {

/// Resolves one service. `dnsSd` must outlive it. While nothing is found it waits for the whole
/// timeout, since a sleeping phone answers late.
std::unique_ptr<NetService> makeNetService(DnsSd& dnsSd, std::shared_ptr<DispatchQueue> mainQueue,
                                           ServiceEndpoint service);

} // namespace quillbox
