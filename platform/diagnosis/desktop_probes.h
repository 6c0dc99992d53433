#pragma once

#include "platform/values/system_facts.h"

#include <chrono>
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

/// Whether ufw is enabled on the system below `root`; No if it is not installed.
Seen probeUfw(const std::filesystem::path& root = "/");

// The other probes query the message buses. Each uses its own connection, activates no service, and
// blocks for at most a few times `limit`. Connecting to a bus that is stuck has no timeout, so the
// caller must bound it. Callable on any thread while the application object exists.

AvahiFacts probeAvahi(std::chrono::milliseconds limit);

/// Whether firewalld is running.
Seen probeFirewalld(std::chrono::milliseconds limit);

/// Whether a panel on the session bus shows StatusNotifierItems.
Seen probeStatusPanel(std::chrono::milliseconds limit);

} // namespace quillbox::diagnosis
