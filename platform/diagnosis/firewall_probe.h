#pragma once

#include "platform/system_facts.h"

#include <chrono>
#include <filesystem>
#include <string_view>

namespace quillbox::diagnosis {

/// Whether ufw is enabled, according to the text of its ufw.conf.
Seen ufwIn(std::string_view configuration);

/// Probes ufw, whose configuration it looks for below `root`, and the packet filter's rules, but
/// not firewalld. Changes nothing. Blocks for at most `limit`.
FirewallFacts probeFirewall(std::chrono::milliseconds limit,
                            const std::filesystem::path& root = "/");

} // namespace quillbox::diagnosis
