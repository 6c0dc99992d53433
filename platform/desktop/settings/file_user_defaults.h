#pragma once

#include "platform/dispatch_queue.h"
#include "platform/user_defaults.h"

#include <memory>
#include <string>

namespace quillbox {

/// The settings in the JSON file at `path`. Values are written asynchronously, by a closure on the
/// main queue, and values that are set before it runs are written together. A write changes the
/// keys that were set to another value and keeps the rest of the file, whoever wrote it. If the
/// file has been deleted or damaged meanwhile, everything in memory is written. What is not a
/// regular file, or cannot be read at the moment, is not replaced. Values that cannot be written
/// stay in memory and are written with the next change.
///
/// The destructor writes pending values. With an empty path everything stays in memory.
std::unique_ptr<UserDefaults> makeFileUserDefaults(std::string path,
                                                   std::shared_ptr<DispatchQueue> mainQueue);

} // namespace quillbox
