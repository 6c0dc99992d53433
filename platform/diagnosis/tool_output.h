#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace quillbox::diagnosis {

struct ToolOutput {
    enum class End {
        Missing, ///< it could not be started
        Late,    ///< it was killed, for taking too long or printing too much
        Failed,
        Done,
    };

    End end = End::Missing;
    std::string output = {};     ///< from standard output
    std::string complaints = {}; ///< from standard error
};

/// The path of a program, looked up in PATH and in the folders for system administration; empty if
/// it is not found.
std::string findTool(const std::string& name);

/// Runs a program with an empty standard input and waits until it exits. Kills it at the limit, or
/// once it has printed more than 16 MiB.
ToolOutput runTool(const std::vector<std::string>& command, std::chrono::milliseconds limit);

} // namespace quillbox::diagnosis
