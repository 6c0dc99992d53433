#pragma once

#include "platform/dnssd/processes/avahi_api.h"

#include <memory>

#include <avahi-client/client.h>

namespace quillbox::dnssd {

/// The API of avahi-daemon, over D-Bus. `client` must outlive the API and its objects.
std::unique_ptr<AvahiApi> makeAvahiClientApi(AvahiClient& client);

} // namespace quillbox::dnssd
