#pragma once

#include <string>

namespace quillbox {

/// The current user's configuration folder: $XDG_CONFIG_HOME if it is an absolute path, else
/// ".config" in the home folder (XDG Base Directory Specification). Empty if there is neither. Not
/// thread-safe: call it at startup.
std::string configurationFolder();

} // namespace quillbox
