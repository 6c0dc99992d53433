#pragma once

#include "platform/system_facts.h"

#include <string>
#include <string_view>

namespace quillbox::diagnosis {

/// The line "hosts:" of an nsswitch.conf, without its key and comments; empty if there is none.
std::string hostsLineIn(std::string_view configuration);

/// Whether the line names a module that uses multicast DNS.
bool asksMulticastDns(std::string_view hostsLine);

/// Whether, with that line, names that end in ".local" are looked up by multicast DNS only.
bool isLocalOnly(std::string_view hostsLine);

/// How names are looked up, according to /etc/nsswitch.conf.
NameFacts readNameService();

/// Whether a name of this computer, such as "computer.local", can be resolved. Blocks if the name
/// service is stuck, so the caller must bound it. Only to be called if isLocalOnly(): otherwise the
/// name might be sent to a DNS server.
Seen isNameFound(const std::string& name);

} // namespace quillbox::diagnosis
