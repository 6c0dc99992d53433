#pragma once

#include "platform/system_facts.h"

#include <string>

namespace quillbox::diagnosis {

/// Writes into the facts what rules of the packet filter do, given as `nft -j list ruleset` prints
/// them. False when that is not what the text is. Only chains that packets to or from this computer
/// are led through count, with those that they jump to.
bool readRules(const std::string& json, FirewallFacts& facts);

} // namespace quillbox::diagnosis
