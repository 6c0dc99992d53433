#pragma once

#include "platform/desktop/instances/registration.h"
#include "platform/running_applications.h"

#include <memory>
#include <string>
#include <vector>

namespace quillbox {

struct InstanceOptions {
    RuntimeFolders folders;
    std::string bundleIdentifier;
    std::string activationToken; ///< passed to an instance that this one activates; may be empty
    bool hasDisplay = true;      ///< told to an instance that activates this one
};

/// Registers this process as a running instance of `bundleIdentifier`, in the first of the folders
/// in which that works: one may be on a full file system. Other instances are looked for in all of
/// them. If none works, the reason is printed on standard error.
///
/// On the main thread, after the application object has been constructed.
std::unique_ptr<RunningApplications> makeRunningApplications(InstanceOptions options);

/// The running instances, in the order of registration, for a process that does not register
/// itself. Needs no application object. Empty, with the reason in `problem`, if there is no safe
/// folder.
std::vector<std::shared_ptr<RunningApplication>>
findRunningInstances(const InstanceOptions& options, std::string& problem);

} // namespace quillbox
