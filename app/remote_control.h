#pragma once

#include "app/control_message.h"
#include "platform/running_applications.h"

#include <string>
#include <vector>

namespace quillbox {

enum class StatusForm { Plain, Json };

/// What a command of the command line has to say, and how it ends.
struct CommandResult {
    int exitStatus = 0;
    std::string output = {};                  ///< for standard output, lines with their ends
    std::vector<std::string> complaints = {}; ///< for standard error, lines without
};

/// Has the running copy do what was asked for, and waits until that is done or refused; after
/// "quit", until the copy has ended. `copy` is none when the program is not running.
CommandResult control(RunningApplication* copy, const ControlRequest& request, StatusForm form);

} // namespace quillbox
