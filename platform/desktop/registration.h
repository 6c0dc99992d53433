#pragma once

#include "platform/posix/file_descriptor.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quillbox {

/// One running copy of an application, as its file in the registration folder tells it.
struct Registration {
    std::string fileName; ///< sorts by launch date
    std::int64_t processIdentifier = 0;
    std::chrono::nanoseconds launchDate{0}; ///< boot-time clock

    bool operator==(const Registration&) const = default;
};

/// A registration of this process, and the socket that stands for it: the copy counts as running
/// for as long as the socket is open, and not one moment longer, whatever ends the process.
struct OwnRegistration {
    Registration registration;
    FileDescriptor socket;
};

/// Registers this process, at this moment. Registrations exclude one another, so that their launch
/// dates are in the order in which they appear. None on failure, with the reason in `problem`.
std::optional<OwnRegistration> addRegistration(int folder, std::string& problem);

/// The copies that run, in the order of registration. Files that dead ones left are removed.
std::vector<Registration> runningRegistrations(int folder);

/// Whether that copy still runs.
bool isRunning(int folder, const Registration& registration);

} // namespace quillbox
