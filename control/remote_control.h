#pragma once

#include "control/control_message.h"
#include "platform/running_applications.h"

#include <string>
#include <vector>

/// Exit statuses of the program, for scripts: all are documented, and no number changes its
/// meaning.
namespace quillbox::exit_status {

inline constexpr int kDone = 0;
/// A file or the output could not be written, the start at login could not be changed, or a check
/// failed.
inline constexpr int kFailed = 1;
inline constexpr int kUsage = 2;        ///< the command line is invalid
inline constexpr int kNotRunning = 3;   ///< there is no running instance to send a command to
inline constexpr int kRefused = 4;      ///< the running instance or the desktop refused
inline constexpr int kUnknownPhone = 5; ///< the running instance knows no phone of that name
inline constexpr int kNoAnswer = 6; ///< the running instance does not respond, or not as expected

} // namespace quillbox::exit_status

namespace quillbox {

enum class StatusForm { Plain, Json };

/// The output and exit status of a command.
struct CommandResult {
    int exitStatus = 0;
    std::string output = {};                  ///< for standard output, with line ends
    std::vector<std::string> complaints = {}; ///< lines for standard error, without line ends
};

/// Sends a request to the running instance and waits until it is done or refused; after "quit",
/// until the instance has exited. `copy` is null when the program is not running.
CommandResult control(RunningApplication* copy, const ControlRequest& request, StatusForm form);

} // namespace quillbox
