#pragma once

#include "platform/name_service.h"

namespace quillbox {

/// The name service as configured in /etc/nsswitch.conf.
NameService systemNameService();

/// Whether the name service asks a running avahi-daemon for names that end in ".local". Then it
/// resolves the names that DNS-SD found, though perhaps slowly: libnss-mdns first asks a DNS server
/// whether it is responsible for ".local", and that may time out.
bool isAvahiAskedForNames();

} // namespace quillbox
