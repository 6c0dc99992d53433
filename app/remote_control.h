#pragma once

#include "app/control_message.h"
#include "platform/running_applications.h"

#include <string>
#include <vector>

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
