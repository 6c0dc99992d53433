#pragma once

#include "platform/posix/file_descriptor.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quillbox {

/// One copy of an application, as described by the name of its file in the registration folder.
struct Registration {
    std::string fileName; ///< sorts by launch date
    std::int64_t processIdentifier = 0;
    std::chrono::nanoseconds launchDate{0}; ///< CLOCK_BOOTTIME

    bool operator==(const Registration&) const = default;
};

/// The registration of this process and its listening socket. The copy counts as running exactly as
/// long as the socket is open, however the process ends.
struct OwnRegistration {
    Registration registration;
    FileDescriptor socket;
};

/// Registers this process, with the current time as launch date. A lock serialises registrations,
/// so they appear in the order of their launch dates. nullopt on failure, with the reason in
/// `problem`.
std::optional<OwnRegistration> addRegistration(int folder, std::string& problem);

/// The running copies, in the order of registration. Removes the files of dead ones.
std::vector<Registration> runningRegistrations(int folder);

/// Whether that copy is still running.
bool isRunning(int folder, const Registration& registration);

} // namespace quillbox
