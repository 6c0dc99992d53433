#pragma once

#include "platform/name_service.h"

#include <string>

namespace quillbox {

/// The name service as configured in /etc/nsswitch.conf.
NameService systemNameService();

/// Whether the program that the name service asks for names that end in ".local" is running.
bool isAskedProgramRunning(const NameService& service);

/// Whether the name service asks a running avahi-daemon for names that end in ".local". Then it
/// resolves the names that DNS-SD found, though perhaps slowly: libnss-mdns first asks a DNS server
/// whether it is responsible for ".local", and that may time out.
bool isAvahiAskedForNames();

/// Whether a name can be resolved. Blocks until the name service answers, so the caller must bound
/// it. It may be sent to a DNS server, unless the name service is local only and the program that
/// it asks is running.
bool isNameFound(const std::string& name);

} // namespace quillbox
