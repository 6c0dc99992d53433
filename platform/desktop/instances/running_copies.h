#pragma once

#include "platform/desktop/instances/registration_folder.h"
#include "platform/running_applications.h"

#include <memory>
#include <string>
#include <vector>

namespace quillbox {

struct RunningCopiesOptions {
    RuntimeFolders folders;
    std::string bundleIdentifier;
    std::string activationToken; ///< passed to a copy that this one activates; may be empty
    bool hasDisplay = true;      ///< told to a copy that activates this one
};

/// Registers this process as a running copy of `bundleIdentifier`, in the first of the folders in
/// which that works: one may be on a full file system. Other copies are looked for in all of them.
/// If none works, the reason is printed on standard error and the process has no launch date.
///
/// On the main thread, after the application object has been constructed.
std::unique_ptr<RunningApplications> makeRunningApplications(RunningCopiesOptions options);

/// The running copies, in the order of registration, for a process that does not register itself.
/// Needs no application object. Empty, with the reason in `problem`, if there is no safe folder.
std::vector<std::shared_ptr<RunningApplication>>
findRunningCopies(const RunningCopiesOptions& options, std::string& problem);

} // namespace quillbox
