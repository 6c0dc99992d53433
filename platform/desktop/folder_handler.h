#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillbox {

/// The identifier ("org.example.Files.desktop") in what `gio mime inode/directory` prints, in the
/// language "C"; none when no program is preferred for folders.
std::optional<std::string> folderHandlerIn(std::string_view output);

/// The desktop entry with this identifier, an absolute path, as the user's and the system's folders
/// have it (Desktop Entry Specification). None if there is none, or its program takes no URLs: it
/// would be started with a URL left out, and show some other folder.
std::optional<std::string> desktopEntryForUrls(std::string_view identifier);

} // namespace quillbox
