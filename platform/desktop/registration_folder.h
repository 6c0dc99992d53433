#pragma once

#include "platform/posix/file_descriptor.h"

#include <string>

namespace quillbox {

/// The folders that may contain the registration folder.
struct RuntimeFolders {
    std::string xdg;    ///< XDG_RUNTIME_DIR; may be empty
    std::string user;   ///< "/run/user/UID"
    std::string shared; ///< a world-writable folder, "/tmp"
};

/// The folders of the current user on this computer.
RuntimeFolders systemRuntimeFolders();

/// The folder to use as XDG_RUNTIME_DIR where the session does not set it: `user`, else the folder
/// in `shared` in which the copies of `bundleIdentifier` register, creating it if needed. Nobody
/// else may enter it. Empty if there is no such folder.
std::string fallbackRuntimeFolder(const RuntimeFolders& folders,
                                  const std::string& bundleIdentifier);

/// Opens the folder in which the copies of `bundleIdentifier` register, creating it if needed: in
/// the first of `xdg` and `user` that belongs to this user and that only this user may write to,
/// else as "IDENTIFIER-UID" in `shared`. The folder belongs to this user and nobody else may enter
/// it. A symbolic link, or a folder of another user, in its place is rejected. Not open on failure,
/// with the reason in `problem`.
FileDescriptor openRegistrationFolder(const RuntimeFolders& folders,
                                      const std::string& bundleIdentifier, std::string& problem);

} // namespace quillbox
