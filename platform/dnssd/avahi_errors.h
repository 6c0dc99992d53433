#pragma once

#include "platform/dnssd/dns_sd_error.h"

namespace quillbox::dnssd {

/// What one of Avahi's error numbers means to the asker.
DnsSdError dnsSdErrorOfAvahi(int error);

/// Whether the error says that Avahi cannot be reached, not that it refuses.
bool isAvahiUnreachable(int error);

} // namespace quillbox::dnssd
