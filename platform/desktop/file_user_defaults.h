#pragma once

#include "platform/dispatch_queue.h"
#include "platform/user_defaults.h"

#include <memory>
#include <string>

namespace quillbox {

/// Where the settings of this application and user are: "settings.json" in the application's folder
/// below $XDG_CONFIG_HOME, else below ".config" in the home folder. Empty when there is neither.
std::string settingsPath(const std::string& bundleIdentifier);

/// The settings in the JSON file at `path`. Values that are set in one turn of the main queue are
/// written together, at the queue's next turn; values that cannot be written are kept in memory and
/// written with the next one. Keys that nobody sets stay in the file as they are.
///
/// What is not written yet is written when the store is destroyed. An empty path keeps everything
/// in memory.
std::unique_ptr<UserDefaults> makeFileUserDefaults(std::string path,
                                                   std::shared_ptr<DispatchQueue> mainQueue);

} // namespace quillbox
