#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillbox {

/// Finds the identifier ("org.example.Files.desktop") of the default program for folders in the
/// output of `gio mime inode/directory` in the locale "C"; nullopt if there is no default.
std::optional<std::string> folderHandlerIn(std::string_view output);

/// The absolute path of the desktop entry with this identifier, looked up in the user's and the
/// system's folders (Desktop Entry Specification). nullopt if there is none, if its program runs in
/// a terminal, or if it takes no URLs: it would be started without the URL and show another folder.
std::optional<std::string> desktopEntryForUrls(std::string_view identifier);

} // namespace quillbox
