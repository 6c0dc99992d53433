#pragma once

#include "platform/dnssd/engine/engine.h"
#include "platform/log.h"

#include <memory>
#include <string>

namespace quillbox::dnssd {

/// Wraps an engine so that it logs when it goes up and down and what happens to the names that it
/// publishes. Returns the engine itself when the log has both categories off. `name` is what the
/// log calls it. The log must outlive the engine.
std::unique_ptr<Engine> withStory(std::unique_ptr<Engine> engine, std::string name, Log& log);

} // namespace quillbox::dnssd
