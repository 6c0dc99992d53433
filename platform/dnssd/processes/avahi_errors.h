#pragma once

#include "platform/dnssd/dns_sd_error.h"

namespace quillbox::dnssd {

/// Maps an Avahi error code to a `DnsSdError`.
DnsSdError dnsSdErrorOfAvahi(int error);

/// Whether the error means that Avahi cannot be reached, as opposed to a refusal.
bool isAvahiUnreachable(int error);

} // namespace quillbox::dnssd
