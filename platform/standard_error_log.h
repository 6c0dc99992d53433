#pragma once

#include "platform/log.h"

#include <memory>
#include <set>

namespace quillbox {

/// A log that writes the given categories to standard error. Each line is made printable and starts
/// with the seconds since the log was created. Without categories it is silent.
std::unique_ptr<Log> makeStandardErrorLog(const std::set<LogCategory>& categories);

} // namespace quillbox
