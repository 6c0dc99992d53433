#pragma once

#include "control/helper_status.h"
#include "platform/running_applications.h"
#include "platform/values/system_facts.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace quillbox {

/// What the running copy of the helper reports.
struct RunningCopyFacts {
    enum class State { NotRunning, Silent, OtherVersion, Answered };

    State state = State::NotRunning;
    std::optional<HelperStatus> status = {}; ///< set if it answered
};

struct DoctorFacts {
    SystemFacts system = {};
    RunningCopyFacts copy = {};
    StartSettings next = {};          ///< what the next start without options uses
    std::string settingsProblem = {}; ///< why the settings file cannot be used; empty if it can
};

/// A result of one check.
struct Finding {
    enum class Result { Ok, Warn, Fail };

    std::string check; ///< a name for scripts: lower-case words, joined by hyphens
    Result result = Result::Ok;
    std::string text;   ///< a sentence; may contain text from the network, verbatim
    std::string advice; ///< what to do; empty for Ok

    bool operator==(const Finding&) const = default;
};

/// Derives the findings from the facts; probes nothing itself. The checks follow the path from the
/// network interface to the file browser; each yields at least one finding.
std::vector<Finding> diagnose(const DoctorFacts& facts);

/// Asks the running copy for its status and waits for the answer; `copy` is null if none is
/// running.
RunningCopyFacts askRunningCopy(RunningApplication* copy, std::chrono::milliseconds limit);

/// The host name of a relay of the running copy; empty if it tells none.
std::string relayHostIn(const RunningCopyFacts& copy);

/// One line per finding, and another one for its advice, safe to print on a terminal.
std::string plainText(const std::vector<Finding>& findings);

/// A JSON array of objects with the members check, result, text and advice.
std::string jsonText(const std::vector<Finding>& findings);

/// Whether a check failed.
bool hasFailure(const std::vector<Finding>& findings);

} // namespace quillbox
