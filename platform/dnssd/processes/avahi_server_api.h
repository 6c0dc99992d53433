#pragma once

#include "platform/dnssd/processes/avahi_api.h"

#include <memory>

#include <avahi-core/core.h>

namespace quillbox::dnssd {

/// The API of an mDNS responder within this process. `server` must outlive the API and its objects.
std::unique_ptr<AvahiApi> makeAvahiServerApi(AvahiServer& server);

} // namespace quillbox::dnssd
