#pragma once

#include "platform/posix/file_descriptor.h"

#include <string>

namespace quillbox {

/// Where the running copies of an application look for one another.
struct RuntimeFolders {
    std::string xdg;    ///< XDG_RUNTIME_DIR, perhaps empty
    std::string user;   ///< "/run/user/UID"
    std::string shared; ///< a folder that others may write to, "/tmp"
};

/// Those of this user on this computer.
RuntimeFolders systemRuntimeFolders();

/// Opens the folder in which the copies of `bundleIdentifier` register, making it if need be: below
/// the first of `xdg` and `user` that is a folder of this user's alone, else a folder of its own in
/// `shared`. It belongs to this user and nobody else may enter it; what somebody else has put in
/// its place is neither followed nor used. Not open when there is no such folder; `problem` then
/// says why.
FileDescriptor openRegistrationFolder(const RuntimeFolders& folders,
                                      const std::string& bundleIdentifier, std::string& problem);

} // namespace quillbox
