#pragma once

#include "platform/log.h"

#include <memory>
#include <set>

namespace quillbox {

/// Tells the categories given on standard error, each line with the seconds since the log was made,
/// made printable. None: it is silent.
std::unique_ptr<Log> makeStandardErrorLog(const std::set<LogCategory>& categories);

} // namespace quillbox
