#pragma once

#include "platform/browser.h"
#include "platform/dnssd/dns_sd.h"

#include <memory>
#include <string>

namespace quillbox {

/// A browser of the default domain. `dnsSd` is used until the browser is cancelled or dropped.
/// `start` and `cancel` are called on one thread, or one after the other.
std::shared_ptr<Browser> makeBrowser(DnsSd& dnsSd, std::string type);

} // namespace quillbox
