#pragma once

#include "platform/system_facts.h"

#include <filesystem>
#include <vector>

namespace quillbox::diagnosis {

/// Whether file browsers here have what opens SMB shares: of GVfs in the data folders, of KIO in
/// the folders of libraries.
FileBrowserFacts probeFileBrowser(const std::vector<std::filesystem::path>& dataFolders,
                                  const std::vector<std::filesystem::path>& libraryFolders);

/// The folders of this system (XDG Base Directory Specification).
std::vector<std::filesystem::path> systemDataFolders();
std::vector<std::filesystem::path> systemLibraryFolders();

/// Whether the session names a display, of X or Wayland.
bool isDesktopNamed();

/// Whether a system tray runs on the X display. Blocks as long as the display does, which only the
/// caller can bound.
Seen probeTray();

} // namespace quillbox::diagnosis
