#pragma once

#include "platform/posix/file_descriptor.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/resource.h>

namespace quillbox {

/// What this process inherited and passes on to the programs that it starts, whatever it changes
/// for itself.
struct Inheritance {
    std::optional<rlimit> openFiles = {};
    bool wasPipeSignalIgnored = false;
    std::vector<std::string> environment = {}; ///< "NAME=VALUE"
};

/// Whether the text can be an activation token: printable ASCII without blanks, of limited length.
bool isActivationToken(std::string_view text);

/// The activation token that the desktop passed to this process when it started it
/// (XDG_ACTIVATION_TOKEN, else DESKTOP_STARTUP_ID); empty if there is no valid one. Call it before
/// constructing the application object, because Qt removes the token from the environment.
std::string activationTokenOfEnvironment();

/// This process's environment, without what is valid for this process only: the activation token
/// of its own start, and the number of its connection to a Wayland compositor.
std::vector<std::string> environmentForPrograms();

/// What a program inherits that may come to the front: with the activation token, unless it is
/// empty, in its environment, under the names that Wayland and X11 programs look for.
Inheritance withActivationToken(Inheritance inheritance, const std::string& token);

/// Prepares the process for many connections: raises the limit of open files to the hard limit, and
/// ignores SIGPIPE, so that writing to a closed connection fails instead of ending the process.
/// Opens standard input, output and error if they are closed, so that no socket can take their
/// numbers. Call it first.
Inheritance prepareProcess();

/// In a child, before it becomes another program: restores what this process inherited, and the
/// default actions of the signals that this process handles, and unblocks all. Makes only
/// async-signal-safe calls.
void passOn(const Inheritance& inheritance);

/// Starts a program, looked up in PATH, in a session of its own and reparented to init, with the
/// inheritance, no blocked signals, and /dev/null as standard input and output. False if it cannot
/// be started.
bool startDetached(const std::vector<std::string>& command, const Inheritance& inheritance);

/// The same, for a program that may give up at once, and whose complaints nobody needs: watches it
/// for a `moment`, with /dev/null as standard error too. The result becomes readable when the
/// moment is over or the program has ended; hasStayed() then reads it. Not open if nothing can be
/// started.
FileDescriptor startWatched(const std::vector<std::string>& command, const Inheritance& inheritance,
                            std::chrono::milliseconds moment);

/// False if the program could not be started or has failed. Waits until that is known.
bool hasStayed(int result);

/// Ends the process with exit status 0 after `limit`, unless it has ended by then. Works even if
/// every thread is stuck.
void endProcessWithin(std::chrono::milliseconds limit);

} // namespace quillbox
