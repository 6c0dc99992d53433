#pragma once

#include "platform/system_facts.h"

#include <string>
#include <string_view>

namespace quillbox::diagnosis {

/// The line "hosts" of an nsswitch.conf, without its name and comments; empty when there is none.
std::string hostsLineIn(std::string_view configuration);

/// Whether a module of that line asks by multicast DNS.
bool asksMulticastDns(std::string_view hostsLine);

/// Whether a name that ends in ".local" is asked of nobody but multicast DNS, by that line.
bool isLocalOnly(std::string_view hostsLine);

/// How names are looked up, by /etc/nsswitch.conf.
NameFacts readNameService();

/// Looks up a name of this computer's, like "computer.local". Blocks as long as the name service
/// does, which only the caller can bound. Only for a line that is local.
Seen isNameFound(const std::string& name);

} // namespace quillbox::diagnosis
