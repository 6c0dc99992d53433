#pragma once

#include "platform/posix/file_descriptor.h"
#include "platform/running_applications.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillbox {

/// Local stream sockets (AF_UNIX) that are addressed by a folder and a file name. The folder is an
/// open file descriptor, so its path may be of any length and cannot be replaced in between. All
/// sockets are non-blocking and close-on-exec.

/// Creates the socket file and listens. Not open on failure, with the reason in errno.
FileDescriptor listenAt(int folder, const std::string& name);

enum class Reached {
    Connected,
    Busy,   ///< failed for now, for example because the backlog is full
    Nobody, ///< nobody listens there
};

/// Connects; `connection` is open if the result is Connected.
Reached connectTo(int folder, const std::string& name, FileDescriptor& connection);

/// Whether the process at the other end belongs to the same user as this one.
bool isPeerOfSameUser(int connection);

/// The folders that may contain the folder in which the instances of an application register.
struct RuntimeFolders {
    std::string xdg;    ///< XDG_RUNTIME_DIR; may be empty
    std::string user;   ///< "/run/user/UID"
    std::string shared; ///< a world-writable folder, "/tmp"
};

/// The folders of the current user on this computer.
RuntimeFolders systemRuntimeFolders();

/// The folder to use as XDG_RUNTIME_DIR where the session does not set it: `user`, else the folder
/// in `shared` in which the instances of `bundleIdentifier` register, creating it if needed. Nobody
/// else may enter it. Empty if there is no such folder.
std::string fallbackRuntimeFolder(const RuntimeFolders& folders,
                                  const std::string& bundleIdentifier);

/// One instance of an application, as described by the name of its socket.
struct Registration {
    std::shared_ptr<const FileDescriptor> folder; ///< which contains the socket; open
    std::string fileName;                         ///< sorts by launch date
    Launch launch = {};
};

/// The registration of this process and its listening socket. The instance counts as running
/// exactly as long as the socket is open, however the process ends.
struct OwnRegistration {
    Registration registration;
    FileDescriptor socket;
};

/// Registers this process as an instance of `bundleIdentifier`, with the current time as launch
/// date. A lock serialises registrations in a folder, so they appear in the order of their launch
/// dates. nullopt if it fails in each folder, with the last folder and its reason in `problem`.
///
/// Tries the folders "IDENTIFIER" in those of `xdg` and `user` that belong to this user and that
/// only this user may write to, then "IDENTIFIER-UID" in `shared`. It creates the folder, and
/// rejects one that is a symbolic link, belongs to another user, or may be entered by others.
std::optional<OwnRegistration> addRegistration(const RuntimeFolders& folders,
                                               const std::string& bundleIdentifier,
                                               std::string& problem);

/// Removes the registration, so that the instance is found no more.
void removeRegistration(const Registration& registration);

/// The running instances in all these folders, in the order of registration. Removes the files of
/// dead ones, and creates nothing. Empty, with the reason in `problem`, if there are folders but
/// none is safe.
std::vector<Registration> runningRegistrations(const RuntimeFolders& folders,
                                               const std::string& bundleIdentifier,
                                               std::string& problem);

/// Whether that instance is still running.
bool isRunning(const Registration& registration);

} // namespace quillbox
