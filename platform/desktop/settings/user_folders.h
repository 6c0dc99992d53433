#pragma once

#include <string>

namespace quillbox {

/// The path of a file in the current user's configuration folder, which is $XDG_CONFIG_HOME if that
/// is an absolute path, else ".config" in the home folder (XDG Base Directory Specification). Empty
/// if there is neither. Not thread-safe: call it at startup.
std::string configurationPath(const std::string& file);

} // namespace quillbox
