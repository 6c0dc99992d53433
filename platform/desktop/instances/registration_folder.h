#pragma once

#include "platform/posix/file_descriptor.h"

#include <string>
#include <vector>

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

/// The paths at which copies of `bundleIdentifier` register, in the order in which a copy tries
/// them: "IDENTIFIER" in those of `xdg` and `user` that belong to this user and that only this user
/// may write to, then "IDENTIFIER-UID" in `shared`. Empty if the identifier is not a file name.
std::vector<std::string> registrationFolders(const RuntimeFolders& folders,
                                             const std::string& bundleIdentifier);

enum class IfAbsent { Create, Fail };

/// Opens a folder that belongs to this user and that nobody else may enter. A symbolic link, or a
/// folder of another user, in its place is rejected. Not open on failure, with the reason in
/// `problem`, which is unchanged if the folder is absent and need not be created.
FileDescriptor openRegistrationFolder(const std::string& path, IfAbsent ifAbsent,
                                      std::string& problem);

} // namespace quillbox
