#pragma once

#include "platform/browser.h"
#include "platform/dnssd/dns_sd.h"

#include <memory>
#include <string>

namespace quillbox {

/// Browses the default domain. `dnsSd` is used until the browser is cancelled or destroyed. `start`
/// and `cancel` must not be called concurrently.
std::shared_ptr<Browser> makeBrowser(DnsSd& dnsSd, std::string type);

} // namespace quillbox
