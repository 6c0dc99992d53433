#pragma once

#include "platform/desktop/registration_folder.h"
#include "platform/running_applications.h"

#include <memory>
#include <string>
#include <vector>

namespace quillbox {

struct RunningCopiesOptions {
    RuntimeFolders folders;
    std::string bundleIdentifier;
    std::string activationToken; ///< handed to the copy that this one activates; may be empty
};

/// Registers this process as a running copy of `bundleIdentifier`. Where there is no safe place to
/// register at, which is said on standard error, the process knows of no other copy and no launch
/// date.
///
/// On the main thread, once the application object exists.
std::unique_ptr<RunningApplications> makeRunningApplications(RunningCopiesOptions options);

/// The running copies, in the order of their registration, for a process that is none and stays
/// unseen by them. Needs no application object. Where there is no safe place to look, there are
/// none, and `problem` says why.
std::vector<std::shared_ptr<RunningApplication>>
findRunningCopies(const RunningCopiesOptions& options, std::string& problem);

} // namespace quillbox
