#pragma once

#include "platform/values/system_facts.h"

#include <filesystem>
#include <vector>

namespace quillbox::diagnosis {

/// Whether file browsers can open SMB shares: looks for the SMB backend of GVfs in the data
/// folders, and for the SMB plugin of KIO in the library folders.
FileBrowserFacts probeFileBrowser(const std::vector<std::filesystem::path>& dataFolders,
                                  const std::vector<std::filesystem::path>& libraryFolders);

/// The folders of XDG_DATA_DIRS, or its default (XDG Base Directory Specification).
std::vector<std::filesystem::path> systemDataFolders();

/// The folders that may contain the plugins of KIO.
std::vector<std::filesystem::path> systemLibraryFolders();

/// Whether the environment names an X or Wayland display.
bool isDesktopNamed();

/// Whether a system tray is running on the X display. Blocks if the X server is stuck, so the
/// caller must bound it.
Seen probeTray();

} // namespace quillbox::diagnosis
