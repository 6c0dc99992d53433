#pragma once

#include <string>

namespace quillbox {

/// Where this user's programs keep their configuration: $XDG_CONFIG_HOME if it is an absolute path,
/// else ".config" in the home folder (XDG Base Directory Specification). Empty when there is
/// neither. Called at the start, on one thread.
std::string configurationFolder();

} // namespace quillbox
