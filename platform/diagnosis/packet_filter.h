#pragma once

#include "platform/system_facts.h"

#include <string>

namespace quillbox::diagnosis {

/// Parses the output of `nft -j list ruleset`, and writes into the facts what the rules do. False
/// if the text is no such output. Considers only the base chains for packets to or from this
/// computer, and the chains that they jump to.
bool readRules(const std::string& json, FirewallFacts& facts);

} // namespace quillbox::diagnosis
