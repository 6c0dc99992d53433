#pragma once

#include "app/helper_status.h"
#include "platform/running_applications.h"
#include "platform/system_facts.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace quillbox {

/// What the copy that is running says of itself.
struct RunningCopyFacts {
    enum class State { NotRunning, Silent, OtherVersion, Answered };

    State state = State::NotRunning;
    std::optional<HelperStatus> status = {}; ///< of a copy that answered
};

struct DoctorFacts {
    SystemFacts system = {};
    RunningCopyFacts copy = {};
};

/// What one check came to.
struct Finding {
    enum class Result { Ok, Warn, Fail };

    std::string check; ///< a name for scripts: lower case, parts with a hyphen between them
    Result result = Result::Ok;
    std::string text;   ///< a sentence, which may hold what the network chose, verbatim
    std::string advice; ///< what to do; empty for Ok

    bool operator==(const Finding&) const = default;
};

/// Judges what was found out, and looks at nothing itself. In the order in which a phone's way to
/// the file browser goes; at least one finding for each check.
std::vector<Finding> diagnose(const DoctorFacts& facts);

/// Asks the copy that is running, and waits for its answer; `copy` is none when there is none.
RunningCopyFacts askRunningCopy(RunningApplication* copy, std::chrono::milliseconds limit);

/// One line a finding and one for what to do, fit for a terminal.
std::string plainText(const std::vector<Finding>& findings);

/// A JSON array of objects with the members check, result, text and advice.
std::string jsonText(const std::vector<Finding>& findings);

/// Of the program: whether anything fails.
int exitStatusOf(const std::vector<Finding>& findings);

} // namespace quillbox
