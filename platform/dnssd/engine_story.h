#pragma once

#include "platform/dnssd/engine.h"
#include "platform/log.h"

#include <memory>
#include <string>

namespace quillbox::dnssd {

/// The engine, which tells the log when it comes and goes and what becomes of the names that it
/// publishes. The very same engine where nobody listens. `name` is what the log calls it. The log
/// outlives it.
std::unique_ptr<Engine> withStory(std::unique_ptr<Engine> engine, std::string name, Log& log);

} // namespace quillbox::dnssd
