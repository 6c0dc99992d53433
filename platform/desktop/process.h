#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <sys/resource.h>

namespace quillbox {

/// What this process was given before it took more: what a program started by it gets back.
struct InheritedLimits {
    rlimit openFiles{};
    bool isOpenFilesKnown = false;
    bool wasPipeSignalIgnored = false;
};

/// Prepares the process for many connections: takes all the descriptors that it may have, and lets
/// a write to a closed connection fail instead of ending the process. Standard input, output and
/// error are open afterwards, so that no socket can take their place. To be called first.
InheritedLimits prepareProcess();

/// Starts a program, looked up in PATH, on its own: with the inherited limits, no signal blocked,
/// nothing to read and nowhere to write but standard error, in a session of its own, and nobody's
/// child. False when it cannot be started.
bool startDetached(const std::vector<std::string>& command, const InheritedLimits& limits);

/// Ends the process successfully once the time is up, unless it has ended by itself. It works while
/// every thread is stuck.
void endProcessWithin(std::chrono::milliseconds limit);

} // namespace quillbox
