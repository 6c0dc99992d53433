#pragma once

#include "platform/system_facts.h"

#include <chrono>
#include <string_view>

namespace quillbox::diagnosis {

/// Whether ufw is on, by the text of its ufw.conf.
Seen ufwIn(std::string_view configuration);

/// Looks at ufw and at the rules of the packet filter, not at firewalld. Changes nothing. Blocks
/// for `limit` at the most.
FirewallFacts probeFirewall(std::chrono::milliseconds limit);

} // namespace quillbox::diagnosis
