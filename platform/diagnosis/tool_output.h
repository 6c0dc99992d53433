#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace quillbox::diagnosis {

struct ToolOutput {
    enum class End {
        Missing, ///< there is no such program
        Late,    ///< it was ended when its time was up
        Failed,
        Done,
    };

    End end = End::Missing;
    std::string output = {};     ///< of standard output
    std::string complaints = {}; ///< of standard error
};

/// Where a program of the system's is, in PATH or where those for administrators are; empty when it
/// is nowhere.
std::string findTool(const std::string& name);

/// Runs a program, with nothing to read, and waits for its end. What it says beyond 16 MiB ends it.
ToolOutput runTool(const std::vector<std::string>& command, std::chrono::milliseconds limit);

} // namespace quillbox::diagnosis
