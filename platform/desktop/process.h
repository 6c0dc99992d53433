#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <sys/resource.h>

namespace quillbox {

/// The limits and the SIGPIPE action that this process inherited, to be restored in programs that
/// it starts.
struct InheritedLimits {
    rlimit openFiles{};
    bool isOpenFilesKnown = false;
    bool wasPipeSignalIgnored = false;
    bool hadRuntimeFolder = true; ///< whether XDG_RUNTIME_DIR was set; if not, programs get none
};

inline constexpr const char* kRuntimeFolderVariable = "XDG_RUNTIME_DIR";

/// Prepares the process for many connections: raises the limit of open files to the hard limit, and
/// ignores SIGPIPE, so that writing to a closed connection fails instead of ending the process.
/// Opens standard input, output and error if they are closed, so that no socket can take their
/// numbers. Call it first.
InheritedLimits prepareProcess();

/// Starts a program, looked up in PATH, in a session of its own and reparented to init, with the
/// inherited limits, no blocked signals, and /dev/null as standard input and output; it inherits
/// standard error. False if it cannot be started.
bool startDetached(const std::vector<std::string>& command, const InheritedLimits& limits);

/// Ends the process with exit status 0 after `limit`, unless it has ended by then. Works even if
/// every thread is stuck.
void endProcessWithin(std::chrono::milliseconds limit);

} // namespace quillbox
