#pragma once

#include "platform/desktop/process.h"

#include <QProcess>
#include <QTimer>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace quillbox {

/// A program that is run for what it answers: looked up in PATH, with each argument handed over as
/// it is, in a session of its own, with the inherited limits, nothing to read, and nowhere to write
/// but to us. Dropping it ends the program; what the program started lives on.
///
/// Belongs to the main thread.
class Command final {
public:
    struct Result {
        bool isSuccess = false; ///< it ran, ended by itself and returned 0
        std::string output;     ///< of its standard output, when that was asked for
    };

    enum class Output { Discarded, Collected };

    /// Called once, from the event loop, at the end or when `limit` is over. It may drop the
    /// command.
    using Finished = std::function<void(const Result&)>;

    /// Starts. `arguments` begins with the program's name.
    Command(const std::vector<std::string>& arguments, Output output, const InheritedLimits& limits,
            std::chrono::milliseconds limit, Finished finished);

    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    ~Command();

private:
    void collect();
    void end(bool isSuccess);

    const bool isCollecting;
    Finished whenFinished;
    std::string collected;
    QProcess process;
    QTimer timer;
};

} // namespace quillbox
